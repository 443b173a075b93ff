// The system logger.
//
// A line goes to the system log, or to standard error when that is a terminal or KALIX_LOG=stderr, or
// to the file KALIX_LOG=FILE: "2026-01-31T12:00:00.123456Z 2 kalix: ..." (UTC, severity, text), whole
// under concurrency. A call never waits for a reader: lines that are not taken at once are kept for a
// while, what is lost then is counted, and the count is logged when lines go again
// (log_sink.h). Beyond 100 lines a second of one kind (one format) lines are counted, not
// written, and the count is logged once a second, so that no client can fill the disk or hide another
// kind of line: "kalix: 4711 more lines not written, like: kalix: ..." with the beginning of the kind's
// last line and its severity. A format therefore says what happened, and takes only values: one that is
// "%s" would make all that goes through it one kind. The receive loop of a channel, or the next line,
// writes a count that is due; the end of the process writes all. Control characters in a text become
// blanks, and a line is cut at 2048 bytes. Any thread.
#pragma once

namespace kalix::platform {

inline constexpr int log_code = 0x12C00008; // the driver's code in the system log
inline constexpr int log_error = 2;         // severities
inline constexpr int log_warning = 3;
inline constexpr int log_information = 5;

// Writes one line; the text carries no newline. Keeps errno.
void slogf(int code, int severity, const char* format, ...) __attribute__((format(printf, 3, 4)));

// The same without rate limit: for lines that announce the end of the process.
void slogf_always(int code, int severity, const char* format, ...) __attribute__((format(printf, 3, 4)));

} // namespace kalix::platform
