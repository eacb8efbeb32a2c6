/* The interface of the launcher plug-in for managed applications.
 *
 * The launcher loads the plug-in into each process that it prepares, looks these functions up by
 * name and calls them around the start of one application:
 *
 *   plugin_initialize(type)                     first, once
 *   plugin_get_tpa()                            the lists that coreclr_initialize takes, in any
 *   plugin_get_dll_path()                       order; the extra list before plugin_set_app_info
 *   plugin_get_native_dll_searching_path()
 *   plugin_get_extra_dll_path()
 *   plugin_set_coreclr_info(host, domain, fn)   once the runtime exists
 *   plugin_preload()                            optional; after plugin_set_coreclr_info
 *   plugin_set_app_info(id, path)               once the application is known
 *   plugin_has_log_control()
 *   plugin_before_execute()                     just before the managed entry point
 *   plugin_finalize()                           last
 *
 * Thread safety: none of these functions takes a lock. Call them from one thread; the process name,
 * the security zone and the capabilities that they set are the calling thread's.
 *
 * Ownership: every text returned belongs to the plug-in. It stays valid until the same function is
 * called again. Copy what must live longer; neither free nor change it.
 *
 * Failures are reported in the platform log, never by a result. A launch that the plug-in refuses
 * ends the process with status 0 after one error line.
 */
#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The plug-in itself is compiled with everything else hidden. */
#pragma GCC visibility push(default)

/* The runtime's coreclr_create_delegate (coreclrhost.h of the public .NET runtime): makes a native
 * function pointer for a static managed method. Returns a 32-bit status, negative on failure. */
typedef int (*coreclr_create_delegate_ptr)(void* hostHandle, unsigned int domainId,
                                           const char* assemblyName, const char* typeName,
                                           const char* methodName, void** delegate);

/* Chooses and builds the launch strategy.
 *
 * appType  a text that contains one of "inhouseapitest", "inhouse", "dotnet", "normal"; the first
 *          of them, in this order, that occurs anywhere in the text decides. Copied.
 *
 * Sets "DOTNET_APP" and "DOTNET_SYSTEM_NET_HTTP_USESOCKETSHTTPHANDLER" in the environment. A text
 * with none of them is an error line in the log; the strategy built earlier, if any, stays.
 *
 * Call first, before any other function and before the runtime is created. */
void plugin_initialize(const char* appType);

/* Prepares a process ahead of its application: loads the listed native libraries, then runs the
 * managed method Velora.Preload.Init of the assembly Preload. A process prepared this way keeps its
 * capabilities in plugin_before_execute.
 *
 * Optional. Call after plugin_set_coreclr_info. */
void plugin_preload(void);

/* Tells which application runs in this process.
 *
 * appId     application id; copied
 * execPath  path of its executable; must exist and lie, with symbolic links resolved, under
 * "/usr/",
 *           "/opt/usr/" or "/opt/share/". Copied.
 *
 * Checks the platform privilege and the path, and ends the process with status 0 where one of them
 * is refused. Names the calling thread "DN_" + the last 12 characters of appId, and points the
 * placeholder descriptors of plugin_get_extra_dll_path at the directories that the application
 * requires; so call plugin_get_extra_dll_path before.
 *
 * Throws std::ios_base::failure when a placeholder could not be opened. */
void plugin_set_app_info(const char* appId, const char* execPath);

/* Asks whether the plug-in controls the process's standard output and error. Always true.
 *
 * The first call puts pipes behind descriptors 1 and 2 and starts two detached threads, "Stdout
 * Thread" and "Stderr Thread", that log what is written there until the process ends. What cannot
 * be started is logged and not tried again. A launcher that prints keeps duplicates of the
 * descriptors, and lets the threads read the pipes empty before it ends the process. */
bool plugin_has_log_control(void);

/* The trusted platform assemblies: absolute paths joined by ":", one per assembly name. Null when
 * the strategy leaves the list to the launcher. */
char* plugin_get_tpa(void);

/* Directories of managed assemblies, joined by ":". Never null. */
char* plugin_get_dll_path(void);

/* Directories of native libraries, joined by ":". Never null; empty today. */
char* plugin_get_native_dll_searching_path(void);

/* Further directories of managed assemblies. Begins with ":" where it is not empty, and may hold
 * "/proc/self/fd/N" placeholders, which lead to the application's required directories only after
 * plugin_set_app_info. Never null. Call once per process: each call opens further placeholders.
 *
 * Throws std::ios_base::failure when "/proc/self" cannot be opened. */
char* plugin_get_extra_dll_path(void);

/* Hands over the runtime that the launcher created.
 *
 * hostHandle, domainId  as coreclr_initialize gave them
 * createDelegate        the runtime's coreclr_create_delegate
 *
 * All three must stay valid until the process ends. */
void plugin_set_coreclr_info(void* hostHandle, unsigned int domainId,
                             coreclr_create_delegate_ptr createDelegate);

/* Drops every capability of the calling thread, unless plugin_preload ran in this process
 * (capabilities(7)). Call just before the managed entry point. */
void plugin_before_execute(void);

/* Ends the launch: from here on a crash ends the process quietly. Call last, after the application
 * has returned. */
void plugin_finalize(void);

/* 1 once plugin_set_app_info has seen the id of a component that is called directly, else 0. */
int is_coba_direct_call_mode(void);

/* What check_signature reads: two files of the partner's, the device's copy of the signing
 * authority's public key, and the configuration key that holds the device's unique id, which counts
 * when it is shorter than QUILLON_PARTNER_DUID_SIZE bytes. */
#define QUILLON_PARTNER_REQUEST "ZQPARTNERDLLREQ.dat"
#define QUILLON_PARTNER_SIGNATURE "ZQPARTNERDLLSIG.sig"
#define QUILLON_PARTNER_PUBLIC_KEY "/usr/bin/DLLzqpartnerpub.pem"
#define QUILLON_PARTNER_DUID_KEY "db/comss/hwduid"
#define QUILLON_PARTNER_DUID_SIZE 100
#define QUILLON_PARTNER_SIGNATURE_SIZE 256

/* Asks whether the libraries of a partner may be used on this device.
 *
 * mountPath  directory that holds the partner's request and signature; a path of more than 4095
 *            bytes to one of them is cut
 *
 * True when the signature is one over the request by the authority's key and the request names this
 * device. Everything else is false, with the reason in the log, a null path included; a directory
 * without one of the two files is false without a line. Reads all files anew at each call.
 *
 * Call at any time, from any thread. */
bool check_signature(const char* mountPath);

/* Set by plugin_finalize: the process is shutting down. */
extern bool checkOnTerminate;

/* The pipes between applications and a validator process. docs/dll-validation.md has the grammar of
 * what travels through them. */
#define QUILLON_DLL_REQUEST_PIPE "/tmp/dotnet_pipe_in"
#define QUILLON_DLL_ANSWER_PIPE "/tmp/dotnet_pipe_out"

/* Asks the validator process whether a library may be loaded.
 *
 * type  logged, not sent
 * path  the library; its last component may not be a symbolic link. Copied.
 *
 * Returns 1 where the answer does not contain "FAIL", else 0; also 0, after a line in the log,
 * where the path cannot be resolved or a pipe is missing or a symbolic link, and without one where
 * the request cannot be written. Blocks until somebody
 * answers, for ever where the validator is gone; a signal whose handler was set without SA_RESTART
 * ends the wait with 0. Answers carry no name: of several processes that ask at once, one may get
 * what was meant for another.
 *
 * Call from any thread, at any time, plugin_initialize or not. */
int plugin_validate_dll(int type, const char* path);

/* What create_pipe_server calls with what it read from the request pipe: one or several requests,
 * of which the last one's line end is removed. text is the server's, valid during the call;
 * userData is always null. */
typedef void (*pipe_message_changed_cb)(const char* text, void* userData);

/* The validator's side: makes both pipes anew, for every user and every label, and calls `callback`
 * for every request text, on this thread and one at a time. Returns only after an error, and leaves
 * the pipes behind. One server a process, and one a machine: a second one takes the pipes away from
 * the first. */
void create_pipe_server(pipe_message_changed_cb callback);

/* Sends one answer: ten lines of message five times in a row. Whoever reads first gets up to 1023
 * bytes of what is in the pipe; so a message of at most 20 bytes is read whole. An answer of more
 * than the pipe holds, 65536 bytes as a rule, is cut. message is not kept. */
void create_pipe_client(const char* message);

/* Watches for memory faults (SIGSEGV) that a handler deals with, as the runtime's does with those
 * in managed code: counts them per period, reports in the platform log from the limit on, and
 * passes each one on to the handler that it replaced.
 *
 * limitForSec  length of a period, in seconds
 * limitCount   faults in one period from which on every further one is reported
 *
 * Call once, after plugin_initialize and once the runtime exists; where nothing else handles the
 * signal, a fault ends the process by it. A further call sets the limits anew and keeps the count.
 */
void enable_exception_monitor(int limitForSec, int limitCount);

/* Asks every thread of the process for its backtrace, the calling one included: logs its id and
 * sends it signal 28, which the platform's crash tooling answers. Where nothing handles the signal,
 * nothing happens (signal(7): it is ignored by default). May be called from any thread, not from a
 * signal handler. Always returns 0. */
int print_all_backtrace(void);

/* The same for one thread of the process, by its id (gettid(2)); logs nothing. Returns what
 * tkill(2) returned: 0, or -1 with errno set. */
int print_backtrace(int tid);

/* Entry points of a debugger extension. They have no effect; the lists are empty: 0. */
void lldb_sos_disable_smdl(void);
void lldb_sos_enable_smdl(void);
void lldb_sos_dump_manage_only_threads(void);
void lldb_sos_dump_manage_threads(void);
void lldb_sos_dump_manage_threads_with_args(void);
void lldb_sos_dump_manage_threads_by_tid(void);
void lldb_sos_set_timeout_time(void);
int lldb_sos_get_managed_thread_list(void);
int lldb_sos_get_thread_list(void);

/* Writes one record to the platform log under the tag "GCTracer", at info or debug priority.
 *
 * text  a malloc'ed text; the function frees it */
void print_log_info(const char* text);
void print_log_debug(const char* text);

/* Returns a copy of `format` in which every "{n}" is replaced by args[n].
 *
 * format  NUL-terminated
 * args    the replacements; an index outside the array is undefined
 * size    bytes after which no further piece is copied; a replacement is always copied whole
 *
 * The result was allocated with new[]; the caller releases it with delete[]. */
char* string_format_test(const char* format, const char** args, int size);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif
