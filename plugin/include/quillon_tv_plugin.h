/* The launcher plug-in for managed applications.
 *
 * The plug-in is a shared library. It computes the assembly search lists for the .NET runtime,
 * decides whether an application may be launched, handles crashes, and captures the application's
 * output. A launcher loads it with dlopen(3), looks up the functions below with dlsym(3), and calls
 * them while it starts one application in its own process.
 *
 * Usage: the launcher calls these functions in this order.
 *
 *   plugin_initialize(type)                     first, once
 *   plugin_get_tpa()                            the four lists for coreclr_initialize, in any order
 *   plugin_get_dll_path()
 *   plugin_get_native_dll_searching_path()
 *   plugin_get_extra_dll_path()
 *   plugin_set_coreclr_info(host, domain, fn)   after coreclr_initialize
 *   plugin_preload()                            optional; before the application is known
 *   plugin_set_app_info(id, path)               when the application is known
 *   plugin_has_log_control()                    starts the capture of standard output and error
 *   plugin_before_execute()                     immediately before the managed entry point
 *   plugin_finalize()                           after the managed entry point has returned
 *
 * The remaining functions are services for the managed code, for a validator process and for
 * debuggers. Each of them states when it may be called.
 *
 * Thread safety: the functions listed above take no lock. Call all of them from the same thread.
 * plugin_initialize, plugin_set_app_info and plugin_before_execute change the security zone, the
 * name and the capabilities of the calling thread only.
 *
 * Ownership: the plug-in copies its string arguments unless stated otherwise. Every string that one
 * of the functions listed above returns belongs to the plug-in and stays valid until the same
 * function is called again. The caller must neither free nor change it.
 *
 * Errors: these functions return no status. A failure is written to the platform log. If the
 * plug-in refuses to launch the application, it writes one error line and calls exit(3) with status
 * 0. That can happen in plugin_initialize and in plugin_set_app_info. A launcher that must notice a
 * refusal registers a function with atexit(3).
 *
 * Memory: if memory runs out, plugin_initialize and plugin_set_app_info refuse the launch. Every
 * other function writes an error line and returns what it returns on other failures; a list is then
 * null or empty. If memory runs out in a function of the C library or of the platform, the list
 * lacks what that function should find, as after its other failures.
 *
 * Unloading: the library stays loaded until the process ends. dlclose(3) has no effect, because
 * signal handlers and threads of the plug-in use the library at any time after plugin_initialize.
 */
#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The plug-in is compiled with -fvisibility=hidden. Only the names below are exported. */
#pragma GCC visibility push(default)

/* Type of the runtime's function coreclr_create_delegate (coreclrhost.h of the .NET runtime). It
 * stores a native function pointer for a static managed method in `*delegate`. It returns a 32-bit
 * status, which is negative on failure. */
typedef int (*coreclr_create_delegate_ptr)(void* hostHandle, unsigned int domainId,
                                           const char* assemblyName, const char* typeName,
                                           const char* methodName, void** delegate);

/* Selects the launch strategy for an application type and builds it.
 *
 * appType  a string that contains "inhouseapitest", "inhouse", "dotnet" or "normal". The words are
 *          searched for in this order, anywhere in the string. The first one found selects the
 *          strategy.
 *
 * Changes the process and the device as follows:
 *
 *   - Environment: sets DOTNET_APP, DOTNET_SYSTEM_NET_HTTP_USESOCKETSHTTPHANDLER and SSL_CERT_FILE,
 *     and replaces earlier values.
 *   - Signals: installs handlers of SIGTERM, SIGABRT, SIGSEGV and SIGTRAP. The handler of SIGTERM
 *     ends the process with status 0. The others end it with status 0 or pass the signal on to the
 *     handler that was installed before; docs/crashes.md has the rules.
 *   - Files: removes the two cached lists TPA.txt and CoBA.txt of the device if
 *     /opt/etc/dotnet_flag.ini is missing or differs from /etc/dotnet_flag.ini. The lists belong to
 *     all applications; docs/caches.md describes them.
 *   - Zone: with the strategy "dotnet" only, moves the process into the application zone, unless it
 *     is already there or the device has no zone library. Ends the process with status 0 if the
 *     zone cannot be entered.
 *
 * If appType contains none of the words, the plug-in changes only the environment, logs an error
 * line, and keeps the strategy of an earlier call, if any.
 *
 * The launcher calls it once, before any other function and before it creates the runtime. The
 * runtime keeps the signal handlers that it finds when it starts. A second call makes the plug-in's
 * handlers pass signals on to themselves, so dumps are lost. */
void plugin_initialize(const char* appType);

/* Prepares a process before its application is known: loads the native libraries of the platform's
 * preload list, except with the strategy "inhouseapitest", then calls the managed method
 * Velora.Preload.Init of the assembly Preload. After this call plugin_before_execute keeps the
 * capabilities of the process.
 *
 * Optional. The launcher calls it after plugin_set_coreclr_info. */
void plugin_preload(void);

/* Sets the application that this process runs.
 *
 * appId     application id
 * execPath  path of the application's executable. It must exist. After symbolic links are resolved
 *           it must begin with "/usr/", "/opt/usr/" or "/opt/share/".
 *
 * Checks execPath. With the strategy "dotnet", also checks that the process is in the application
 * zone, but no privilege. With every other strategy, also checks that the application's package has
 * the platform privilege, but no zone. A failed check ends the process with status 0, whatever the
 * strategy is. Otherwise sets the name of the calling thread to "DN_" and the last 12 characters of
 * appId, and makes the placeholder descriptors of plugin_get_extra_dll_path refer to the
 * directories that the application requires.
 *
 * Throws the C++ exception std::ios_base::failure if a required placeholder was not opened.
 *
 * The launcher calls it after plugin_get_extra_dll_path and before plugin_before_execute. */
void plugin_set_app_info(const char* appId, const char* execPath);

/* Returns true: the plug-in captures the standard output and standard error of the process.
 *
 * The first call replaces descriptors 1 and 2 by pipes and starts two detached threads, "Stdout
 * Thread" and "Stderr Thread". They write everything that arrives in the pipes to the platform log
 * until the process ends. If a part of the capture cannot be started, the plug-in logs an error
 * line and does not try again; the result is still true.
 *
 * A launcher that prints messages of its own must duplicate descriptors 1 and 2 before this call.
 * Before it ends the process, it should wait until both pipes are empty; otherwise the last output
 * of the application may be missing from the log.
 *
 * The launcher calls it before plugin_before_execute. */
bool plugin_has_log_control(void);

/* Returns the trusted platform assemblies (TPA): absolute paths separated by ":", one path per
 * assembly name. Returns null if the list is empty. With the strategy "dotnet" it always is: the
 * launcher then makes the list.
 *
 * With the strategy "inhouseapitest", the list begins with the application's own copies of the TV
 * API. It may then contain an assembly name twice; the first path is meant. It ends with ":" if the
 * platform has no assemblies. A launcher should remove the second path and the ":" before it gives
 * the list to the runtime.
 *
 * The launcher calls it after plugin_initialize and before it creates the runtime. */
char* plugin_get_tpa(void);

/* Returns the directories of managed assemblies, separated by ":". Never null. Called at the same
 * time as plugin_get_tpa. */
char* plugin_get_dll_path(void);

/* Returns the directories of native libraries. Currently always empty. Never null. */
char* plugin_get_native_dll_searching_path(void);

/* Returns additional directories of managed assemblies, separated by ":". A list that is not empty
 * begins with ":", so that the launcher can append it to the list of plugin_get_dll_path. It may
 * contain placeholders of the form "/proc/self/fd/N". They refer to the application's required
 * directories only after plugin_set_app_info. Never null.
 *
 * The launcher calls it once per process, because each call opens more placeholder descriptors, and
 * before plugin_set_app_info.
 *
 * Throws the C++ exception std::ios_base::failure if "/proc/self" cannot be opened. */
char* plugin_get_extra_dll_path(void);

/* Gives the plug-in the runtime that the launcher created.
 *
 * hostHandle      the host handle that coreclr_initialize returned
 * domainId        the domain id that coreclr_initialize returned
 * createDelegate  the runtime's function coreclr_create_delegate
 *
 * All three must stay valid until the process ends.
 *
 * Starts the server of the object tracker if the tracker is installed on the device, and lets
 * debuggers of every access label open the runtime's debugger pipes of this process. The launcher
 * calls it once, after coreclr_initialize. */
void plugin_set_coreclr_info(void* hostHandle, unsigned int domainId,
                             coreclr_create_delegate_ptr createDelegate);

/* Removes all capabilities (capabilities(7)) of the calling thread. Does nothing if plugin_preload
 * was called in this process. A failure is logged. The launcher calls it immediately before it
 * calls the managed entry point. */
void plugin_before_execute(void);

/* Ends the launch. After this call the plug-in's handlers of SIGABRT and SIGSEGV end the process
 * with status 0 and without a core dump. The launcher calls it last, after the managed entry point
 * has returned. */
void plugin_finalize(void);

/* Returns 1 if plugin_set_app_info was called with an id that contains "com.korvane.tv.csfs", a
 * component that is called directly. Returns 0 otherwise. May be called at any time. */
int is_coba_direct_call_mode(void);

/* The files and the configuration key that check_signature reads: the partner's request and
 * signature, the public key of the signing authority on the device, and the key of the device's
 * unique id (DUID). An id of QUILLON_PARTNER_DUID_SIZE bytes or more never matches. */
#define QUILLON_PARTNER_REQUEST "ZQPARTNERDLLREQ.dat"
#define QUILLON_PARTNER_SIGNATURE "ZQPARTNERDLLSIG.sig"
#define QUILLON_PARTNER_PUBLIC_KEY "/usr/bin/DLLzqpartnerpub.pem"
#define QUILLON_PARTNER_DUID_KEY "db/comss/hwduid"
#define QUILLON_PARTNER_DUID_SIZE 100
#define QUILLON_PARTNER_SIGNATURE_SIZE 256

/* Checks whether the libraries of a partner may be used on this device.
 *
 * mountPath  directory that contains the partner's request and signature. A file path in it that is
 *            longer than 4095 bytes is truncated.
 *
 * Returns true if the signature is valid for the request and the authority's public key, and if the
 * request names this device. Returns false otherwise, including for a null mountPath, and logs the
 * reason. If one of the partner's two files is missing, it returns false without a log line. Every
 * call reads all files again.
 *
 * May be called at any time and from any thread, also without plugin_initialize. */
bool check_signature(const char* mountPath);

/* False until plugin_finalize sets it: the process is shutting down. */
extern bool checkOnTerminate;

/* The named pipes between applications and the validator process. docs/dll-validation.md specifies
 * the messages. */
#define QUILLON_DLL_REQUEST_PIPE "/tmp/dotnet_pipe_in"
#define QUILLON_DLL_ANSWER_PIPE "/tmp/dotnet_pipe_out"

/* Asks the validator process whether a library may be loaded.
 *
 * type  a number for the log only; it is not sent
 * path  path of the library. Its last component must not be a symbolic link.
 *
 * Returns 1 if an answer arrives that does not contain "FAIL". Returns 0 otherwise:
 *
 *   - if the answer contains "FAIL";
 *   - after a log line, if path cannot be resolved, if one of the pipes is missing or a symbolic
 *     link, or if the request cannot be written;
 *   - without a log line, if a signal whose handler was installed without SA_RESTART interrupts the
 *     wait.
 *
 * Blocks until an answer arrives; there is no timeout. Answers do not name the process that asked.
 * If several processes ask at the same time, one of them can read the answer for another.
 *
 * May be called at any time and from any thread, also without plugin_initialize. */
int plugin_validate_dll(int type, const char* path);

/* Callback of create_pipe_server.
 *
 * text      the data of one read from the request pipe: one or more requests, without the line end
 *           of the last one. Owned by the server; valid only during the call.
 * userData  always null */
typedef void (*pipe_message_changed_cb)(const char* text, void* userData);

/* Runs the server side of the validation in the calling thread, in a validator process. Removes and
 * creates both pipes, makes them accessible to every user and every access label, then reads the
 * request pipe and calls `callback` for each read, one call at a time. If another user puts a file
 * or a link into a pipe's place meanwhile, that file's rights do not change.
 *
 * Returns only after an error, and does not remove the pipes. Run at most one server at a time on a
 * machine, because a second server replaces the pipes of the first one. */
void create_pipe_server(pipe_message_changed_cb callback);

/* Sends an answer: writes ten lines to the answer pipe, each of which contains message five times.
 * A reader takes up to 1023 bytes at once, so a message of at most 20 bytes is always read
 * completely. An answer that is larger than the pipe, usually 65536 bytes, is truncated without an
 * error line. If the pipe cannot be opened or is a symbolic link, the plug-in logs an error line
 * and sends nothing.
 *
 * May be called from any thread. */
void create_pipe_client(const char* message);

/* Starts counting memory faults (SIGSEGV) that another handler recovers from, such as the runtime's
 * handler for null references in managed code. Every fault is passed on to the handler that was
 * installed before.
 *
 * limitForSec  length of a period, in seconds
 * limitCount   when the number of faults in one period reaches this limit, that fault and each
 *              further fault of the period is reported in the platform log
 *
 * Call it once, after plugin_initialize and after the runtime was created. If no handler was
 * installed before, the next fault ends the process with SIGSEGV.
 *
 * Another call replaces the limits, begins a period, and keeps the count. Never call it again after
 * the runtime or other code has installed a handler of SIGSEGV in front of the monitor: the monitor
 * and that handler would then call each other without end at the next fault. */
void enable_exception_monitor(int limitForSec, int limitCount);

/* Requests a backtrace of every thread of the process, including the calling thread: logs the id of
 * each thread and sends signal 28 to it. The platform's crash tooling handles the signal. Without a
 * handler the signal has no effect, because it is ignored by default (signal(7)).
 *
 * Always returns 0. May be called from any thread, but not from a signal handler. */
int print_all_backtrace(void);

/* Requests a backtrace of one thread of the process, as print_all_backtrace does, but logs nothing.
 *
 * tid  thread id (gettid(2))
 *
 * Returns the result of tkill(2): 0 on success, or -1 with errno set. May be called from any
 * thread. */
int print_backtrace(int tid);

/* Entry points for a debugger extension. They have no effect. The two lists are empty, so their
 * functions return 0. May be called at any time. */
void lldb_sos_disable_smdl(void);
void lldb_sos_enable_smdl(void);
void lldb_sos_dump_manage_only_threads(void);
void lldb_sos_dump_manage_threads(void);
void lldb_sos_dump_manage_threads_with_args(void);
void lldb_sos_dump_manage_threads_by_tid(void);
void lldb_sos_set_timeout_time(void);
int lldb_sos_get_managed_thread_list(void);
int lldb_sos_get_thread_list(void);

/* Write one record with the tag "GCTracer" and the priority info or debug to the platform log.
 *
 * text  a string allocated with malloc(3). The function takes ownership and frees it. Null is
 *       ignored.
 *
 * May be called from any thread. */
void print_log_info(const char* text);
void print_log_debug(const char* text);

/* Returns a copy of `format` in which every "{n}" is replaced by args[n].
 *
 * format  a NUL-terminated string
 * args    the replacements. An index outside the array is undefined behaviour.
 * size    limit of the result in bytes, including the terminating NUL. It is checked between
 *         pieces; a replacement is always copied completely and can exceed it.
 *
 * The result is allocated with new[]. The caller must release it with delete[]. May be called from
 * any thread. */
char* string_format_test(const char* format, const char** args, int size);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif
