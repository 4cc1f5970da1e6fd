// Preparation of the platform's socket layer.
#include <qiven/log.h>

int QIVENSocketInit(void) {
    return 0;
}
