// Emits the access point record's implicit copy constructor and destructor
// into the module, where the export list makes them visible to hosts.
//
// Hosts copy and destroy ap_info records with the module's definitions of
// these two members, but an implicit member is only emitted by a translation
// unit that calls it, and only if the call is not inlined away. The
// functions below are those calls until the scan results path copies records
// itself: they have external linkage (hidden, like every private name) so
// that the compiler keeps them, and this file is compiled with -fno-inline
// (src/CMakeLists.txt) so that the calls stay calls at every optimisation
// level. The interface tests check that both members are exported.
#include <new>

#include "qira/network/ap_info.h"

namespace qira::network::scan {

// Copy-constructs a record into `storage` (suitably aligned, uninitialised).
ap_info* copy_record(void* storage, const ap_info& source) {
  return new (storage) ap_info(source);
}

// Destroys a record made by copy_record without freeing its storage.
void destroy_record(ap_info* record) {
  record->~ap_info();
}

}  // namespace qira::network::scan
