/* The platform's log.
 *
 * __dlog_print formats like printf(3) and appends one record to the log buffer `log_id`. Safe to
 * call from any thread. Never call it from a signal handler.
 */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Priorities in use; the platform defines further ones. */
enum {
  DLOG_DEBUG = 3,
  DLOG_INFO = 4,
  DLOG_ERROR = 6,
};

/* Appends one record.
 *
 * log_id  buffer; 0 is the main one
 * prio    priority, one of the above
 * tag     who writes; copied
 * fmt     printf(3) format of the text
 *
 * Returns a negative value on failure; callers ignore it.
 */
int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif
