// Compiled with the reference host's package alone: its headers include the
// module's and the host contract headers, which its package requires.
#include "qira/host/bss_decoder.h"
#include "qira/host/loader.h"
#include "qira/host/seams.h"
