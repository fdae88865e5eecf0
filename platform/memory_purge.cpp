// Host stand-in for the platform's memory purge: hands free heap pages back to the kernel.
#include "korvex_utils.h"

#include <malloc.h>

extern "C" int sys_mem_purge(int level) {
    if (level > 0) malloc_trim(0);
    return 0;
}
