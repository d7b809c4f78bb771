// The temporary output files that are alive at this moment, so that an
// interrupted process can remove them before it ends.
//
// A file is entered before it is created and left out once it has been
// renamed onto its final name or removed. SIGINT, SIGTERM and SIGHUP remove
// every entered file and then end the process by the same signal, as a shell
// expects of an interrupted command; so does a normal process end (exit) for
// files still entered then. A signal that was ignored when the handlers were
// installed (nohup, a background job) stays ignored. SIGXFSZ is ignored, so
// that a write beyond the file-size limit fails with EFBIG and is reported
// like any write error instead of killing the process.
#pragma once

// Installs the signal handlers and the exit hook; later calls do nothing.
void install_temporary_cleanup();

// Enters `path`; returns the entry to leave it by, or -1 when every entry is
// taken or the path is too long (the file is then not removed on a signal,
// which is all that is lost).
int enter_temporary(const char *path);

// Leaves an entry returned by enter_temporary (-1 is allowed).
void leave_temporary(int entry);

// Removes every entered file. Async-signal-safe.
void remove_entered_temporaries() noexcept;
