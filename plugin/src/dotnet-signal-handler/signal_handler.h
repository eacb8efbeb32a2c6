// The plug-in's handlers of SIGTERM, SIGABRT, SIGSEGV and SIGTRAP.
//
// A handler either ends the process quietly, with status 0, or restores the previous action and
// raises the signal again, so that the platform's crash handling runs.
//
//   SIGTERM  ends quietly
//   SIGABRT  the first one is passed on. Ends quietly after plugin_finalize, on a second SIGABRT,
//            and if dumps are suppressed: the standard-error capture found a managed exception and
//            no memory fault, and the file "/tmp/dotnet_dont_create_dump" does not exist
//   SIGSEGV  the first one is passed on. Ends quietly after plugin_finalize and on a later SIGSEGV
//   SIGTRAP  the first one is passed on. Ends quietly on a later SIGTRAP
//
// Thread safety: registerSignalHandler may be called by one thread at a time. The handlers run in
// the thread that received the signal, and in several threads at the same time. They take no lock,
// allocate no memory, write only to the standard-error capture pipe, and call only
// async-signal-safe functions (signal-safety(7)). The flags are not atomic: each one changes its
// value only once.
#pragma once

#include <csignal>

// The actions that registerSignalHandler installed, and the previous actions.
extern struct sigaction sig_abrt_new;
extern struct sigaction sig_abrt_old;
extern struct sigaction sig_segv_new;
extern struct sigaction sig_segv_old;
extern struct sigaction sig_trap_new;
extern struct sigaction sig_trap_old;

// True until the handler of the signal runs for the first time.
extern bool bFirstSigSegv;
extern bool bFirstSigTrap;

// Set before an abort is raised again, so that the next abort ends the process immediately.
extern bool checkOnSigabrt;

// Installs the handlers. Every strategy calls it in its constructor.
//
// A failure is logged as an error line and does not stop the remaining installations. Returns the
// result of the last sigaction(2). If it is called again, it saves our own handlers as the previous
// actions. A handler that raises its signal again then runs a second time and ends the process
// quietly.
int registerSignalHandler();
