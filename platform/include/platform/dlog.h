/* The platform's log.
 *
 * __dlog_print may be called from any thread, but not from a signal handler.
 */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* The priorities that the plug-in uses. The platform defines more. */
enum {
  DLOG_DEBUG = 3,
  DLOG_INFO = 4,
  DLOG_ERROR = 6,
};

/* Formats a text like printf(3) and appends one record to a log buffer.
 *
 * log_id  log buffer; 0 is the main buffer
 * prio    one of the priorities above
 * tag     name of the writer; copied
 * fmt     printf(3) format of the text
 *
 * Returns a negative value on failure, which callers ignore.
 */
int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif
