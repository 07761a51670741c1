// Written by kelc: the load order of libGolden's modules and the names of its types.
#include <kel/Registry.h>

extern ::Kel::Module kelModuleGolden_;   [[gnu::visibility("default")]] void kelInitGolden();

namespace {
/// The qualified names of the library's types, for readers that do not run it: per module the last registered first, each group at a
/// 32-byte boundary.
[[gnu::used, gnu::retain, gnu::section( ".kel.type" ), gnu::aligned( 32 )]] const struct {
   alignas( 32 ) char Golden[ 116 ] =
      "Bridging::HostSm\0" "Bridging::Status\0" "Bridging::HostDir\0" "Bridging::Host\0" "Bridging::State\0" "Bridging::Label\0"
      "Bridging::VlanId";
} kelTypes;

[[gnu::constructor( 200 )]] void initialiseGolden() {
   ::Kel::initialiseModule( kelModuleGolden_, kelInitGolden );
}

}
