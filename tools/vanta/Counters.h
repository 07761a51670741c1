#pragma once

namespace Tool {

/// `vanta counters`.
int countersCommand( int argc, char** argv );

}
