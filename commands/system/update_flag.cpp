#include "commands/system/update_flag.h"

extern "C" {
KORVEX_EXPORT int checkupdateflag = 0;
}
