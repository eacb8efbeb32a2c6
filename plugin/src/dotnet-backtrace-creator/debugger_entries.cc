// Entry points for a debugger extension: fixed results, no effect.
#include "quillon_tv_plugin.h"

void lldb_sos_disable_smdl() {}
void lldb_sos_enable_smdl() {}
void lldb_sos_dump_manage_only_threads() {}
void lldb_sos_dump_manage_threads() {}
void lldb_sos_dump_manage_threads_with_args() {}
void lldb_sos_dump_manage_threads_by_tid() {}
void lldb_sos_set_timeout_time() {}
int lldb_sos_get_managed_thread_list() { return 0; }
int lldb_sos_get_thread_list() { return 0; }
