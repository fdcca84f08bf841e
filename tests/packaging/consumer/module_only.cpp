// Compiled with the module's package alone: its headers, the host contract
// headers they include and libnl's come with it.
#include "qira/network/wireless.h"
