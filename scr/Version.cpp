#include "scr/Version.h"

namespace SCR {

#define KESTREL_TEXT(number) #number
#define KESTREL_VERSION_TEXT(major, minor, patch) \
    KESTREL_TEXT(major) "." KESTREL_TEXT(minor) "." KESTREL_TEXT(patch)

const char* version() {
    return KESTREL_VERSION_TEXT(KESTREL_VERSION_MAJOR, KESTREL_VERSION_MINOR,
                                KESTREL_VERSION_PATCH);
}

}  // namespace SCR
