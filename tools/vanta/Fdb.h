#pragma once

#include "Cli.h"

namespace Tool {

/// Appends --table, which sets `table`; "fdb" without it.
void addTableOption( std::vector< Option >& options, std::string& table );

int fdbShow( int argc, char** argv );
int fdbWatch( int argc, char** argv );

}
