#pragma once

#include "Program.h"

namespace Kelc {

/// Resolves every name of a loaded program and checks it against the rules of the language. Without errors in `diagnostics`
/// afterwards the model is complete and the emitters may run.
void check( Program& program, Diagnostics& diagnostics );

}
