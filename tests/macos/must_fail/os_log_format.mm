// os_log formats are checked like the SDK's macros check them.
// expect: format specifies type 'char *'
#include <os/log.h>
void say(os_log_t log, int count) { os_log_info(log, "%{public}s cameras", count); }
