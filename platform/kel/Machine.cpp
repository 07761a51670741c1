#include <kel/Machine.h>

namespace Kel {

namespace {

constinit const Attr machineAttrs[] = { derivedAttr< Machine, &Machine::hasNotificationActive >( "hasNotificationActive" ) };

}

constinit Type Machine::_Type{ { .qualifiedName = "Kel::Machine", .code = TypeCode::machine, .attrs = machineAttrs } };

void Machine::nullRefused( const char* attribute ) const {
   const std::string name = attribute;
   throw RangeException( "null _" + name + " parameter to mutator for " + std::string( fwkType().qualifiedName() ) + "::" + name +
                         " not allowed" );
}

void Machine::reinstantiated( const char* attribute, const std::string& wanted, const std::string& current ) {
   throw NameInUseException( std::string( "Reinstantiating the pointer interface where constructor parameter attribute _" ) +
                             attribute + " has a different value of " + wanted + " than the current value of " + current +
                             " not allowed" );
}

}
