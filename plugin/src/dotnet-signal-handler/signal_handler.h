// How a process dies: the handlers of SIGTERM, SIGABRT, SIGSEGV and SIGTRAP.
//
// A handler either ends the process quietly, with status 0, or restores the action that it replaced
// and raises the signal again, so that the platform's crash handling takes over.
//
//   SIGTERM  ends quietly
//   SIGABRT  the first one is passed on; quiet after plugin_finalize, as the second one, and where
//            dumps are suppressed: after a managed exception that the standard-error capture saw,
//            unless it saw a memory fault too or "/tmp/dotnet_dont_create_dump" exists
//   SIGSEGV  the first one is passed on; quiet after plugin_finalize and as a later one
//   SIGTRAP  the first one is passed on; quiet as a later one
//
// Thread safety: registerSignalHandler is for one thread at a time. Handlers run on whichever
// thread got the signal, on several at once too. They take no lock, allocate nothing, write nothing
// but the standard-error capture pipe, and call async-signal-safe functions only
// (signal-safety(7)). The flags are plain: each is a switch that goes one way.
#pragma once

#include <csignal>

// What registerSignalHandler installed, and what was in force before.
extern struct sigaction sig_abrt_new;
extern struct sigaction sig_abrt_old;
extern struct sigaction sig_segv_new;
extern struct sigaction sig_segv_old;
extern struct sigaction sig_trap_new;
extern struct sigaction sig_trap_old;

// True until the first signal of the kind reached its handler.
extern bool bFirstSigSegv;
extern bool bFirstSigTrap;

// Set before an abort is raised again, so that the next one ends the process at once.
extern bool checkOnSigabrt;

// Installs the handlers. Run at the construction of every strategy.
//
// Failures are error lines; one does not stop the rest. Returns what the last sigaction(2)
// returned. A second call saves what is then in force, our own handlers included: from then on the
// signal that a handler raises again comes back to it and ends the process quietly.
int registerSignalHandler();
