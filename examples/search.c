/* Searches the segment for ten seconds; the hosts are then listed in /tmp/tavoqx.list.tmp. */
#include <qiven/search.h>

int main(void) {
    return TAVOQIVENDumpHost() == 0 ? 0 : 1;
}
