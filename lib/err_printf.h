// Error lines tagged with a source position.
#pragma once

// Flushes standard output, writes "<file>:<line>:: error: " and the formatted
// message to standard error, and flushes it. The message supplies its own
// line end.
void err__printf(const char* file, int line, const char* format, ...) __attribute__((format(printf, 3, 4)));

// The base name of a source path, so that messages never show build paths.
constexpr const char* source_base_name(const char* path) {
    const char* base = path;
    for (const char* p = path; *p; ++p)
        if (*p == '/' || *p == '\\') base = p + 1;
    return base;
}

#define ERR_PRINTF(...) err__printf(source_base_name(__FILE__), __LINE__, __VA_ARGS__)
