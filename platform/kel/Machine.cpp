#include <kel/Machine.h>

namespace Kel {

constinit Type Machine::_Type{ { .qualifiedName = "Kel::Machine", .code = TypeCode::machine } };

void Machine::nullRefused( const char* attribute ) const {
   const std::string name = attribute;
   throw RangeException( "null _" + name + " parameter to mutator for " + std::string( fwkType().qualifiedName() ) + "::" + name + " not allowed" );
}

}
