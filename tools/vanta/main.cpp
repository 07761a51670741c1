#include "Cli.h"
#include "Counters.h"
#include "Output.h"

namespace {

constexpr Tool::Command commands[] = {
   { "fdb", "the MAC address table: show it, or watch it change", Tool::fdbCommand },
   { "counters", "the traffic counters of each VLAN", Tool::countersCommand },
   { "tables", "the shared-memory tables of this machine and the state of their writers", Tool::tablesCommand },
   { "types", "the types that a library declares, and the reference of each", Tool::typesCommand },
   { "trace", "the last trace messages of a process, also of one that has ended", Tool::traceCommand },
};

}

int main( int argc, char** argv ) {
   if( argc > 1 && std::string_view( argv[ 1 ] ) == "--version" ) {
      Tool::print( "vanta " VANTA_VERSION "\n" );
      return 0;
   }
   const int code = Tool::runCommand( "vanta",
                                      "Shows what a switch's agents share: tables, traces and types.\n\n"
                                      "Exit codes: 0 done; 1 what was asked for is not there; 2 the command line can't be used; 3 a\n"
                                      "file, table, ring or schema is not there, is none or can't be read, or the output can't be\n"
                                      "written.",
                                      commands, argc, argv );
   Tool::flushOutput();
   return code;
}
