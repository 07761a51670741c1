#pragma once

#include <cstdint>

namespace Tool {

/// What has been counted between two readings. A count that has gone back by less than half of its range has not wrapped: it
/// began again with its agent.
std::uint64_t passed( std::uint64_t now, std::uint64_t before );

/// `vanta counters`.
int countersCommand( int argc, char** argv );

}
