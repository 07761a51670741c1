#include <kel/GenericIf.h>
#include <kel/LogValue.h>
#include <kel/Seqno32.h>

namespace Oru {

namespace {

// The number is the whole object.
constinit const Kel::Attr attrs[] = { Kel::attr< Kel::U32 >( "value", 0 ) };

}

constinit Kel::Type Seqno32::_Type{ { .qualifiedName = "Oru::Seqno32",
                                      .code = _code,
                                      .size = sizeof( Seqno32 ),
                                      .attrs = attrs,
                                      .values = &Kel::valueOps< Seqno32 >,
                                      .wrap = &Kel::makeGenericIf< Seqno32 > } };

}
