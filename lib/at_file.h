// Argument-list files: an argument "@name" (or "$name") is replaced by the
// lines of the file name, one argument per line, recursively; arguments that
// begin with "#" are dropped.
#pragma once

#include <cstddef>

// Expands *argv in place: when anything changed, *argc and *argv are replaced
// by a new malloc'ed vector (the incoming one is left untouched). Returns 0.
// An argument file that includes itself, directly or through others,
// nesting deeper than max_at_file_depth, or an expansion beyond the limits
// below ends the process with one error line naming the file and status 1.
int rebuild_argv(int* argc, char*** argv);

// Adds one argument to argv at *argc (argv null: only counts), expanding it
// when it names an argument file. Returns the number of argument-file lines
// expanded below it. With argv non-null the caller provides the room.
int add_arg_to_argv(int* argc, char** argv, const char* arg);

// Undoes rebuild_argv: frees the rebuilt vector and puts the old one back.
int restore_argv(int* argc, char*** argv, int old_argc, char** old_argv);

// Deepest nesting of argument files that is followed.
constexpr int max_at_file_depth = 16;

// Limits that keep an argument file such as /dev/zero from taking all memory:
// the bytes read from one file, and the arguments of the whole expansion.
// Beyond either, one error line names the file and the process ends with 1.
constexpr std::size_t max_at_file_bytes = std::size_t{64} << 20;
constexpr long max_arguments = 1000000;
