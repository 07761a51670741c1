#include "TestSupport.h"

namespace Fdbd {

using namespace Test;

TEST( Options, SourcesAndTheirPorts ) {
   const Options o = parsed( { "--capture", "a.pcap", "--interface", "eth0", "--capture=b=c.pcap=Port-Channel7", "--bridge", "br=0",
                               "--capture", "c.pcap", "--interface", "eth1=Et3/2" } );
   const std::vector< std::pair< std::string, std::string > > expected = {
      { "a.pcap", "Ethernet1" }, { "eth0", "" }, { "b=c.pcap", "Port-Channel7" }, { "br=0", "" }, { "c.pcap", "Ethernet3" },
      { "eth1", "Ethernet3/2" } };
   ASSERT_EQ( o.sources.size(), expected.size() );
   for( std::size_t i = 0; i < expected.size(); ++i ) {
      EXPECT_EQ( o.sources[ i ].name, expected[ i ].first );
      EXPECT_EQ( o.sources[ i ].port.stringValue().str(), expected[ i ].second );
   }
}

TEST( Options, StatisticsMayHaveAnIntervalOfItsOwn ) {
   const auto with = []( std::vector< std::string > words ) {
      words.insert( words.end(), { "--bridge", "b" } );
      return parsed( words );
   };
   EXPECT_EQ( with( { "--statistics" } ).statisticsInterval, 0 );
   EXPECT_EQ( with( { "--statistics=0.5" } ).statisticsInterval, nanosPerSecond / 2 );
   EXPECT_EQ( with( { "--statistics", "2" } ).statisticsInterval, 2 * nanosPerSecond );
}

TEST( Options, NamesOfTables ) {
   const std::string longest( 177, 'a' ), longer( 200, 'a' );
   EXPECT_EQ( parsed( { "--capture", "a", "--table", longest } ).vlanCounters, longest + "-vlan-counters" );
   EXPECT_EQ( parsed( { "--capture", "a", "--table", longer, "--vlan-counters", "c" } ).table, longer );
   // Who counts nothing has one table only.
   EXPECT_EQ( parsed( { "--bridge", "a", "--table", longer } ).table, longer );
   EXPECT_EQ( parsed( { "--bridge", "a", "--table", "t", "--vlan-counters", "t" } ).table, "t" );
}

TEST( Options, EachMistakeIsNamed ) {
   const std::string longName( 178, 'a' );
   const std::string longNameRefused = "--table '" + longName + "': too long for the names of the VLANs' counters, which are made "
                                       "from it; give at most 177 bytes, or name the counters with --vlan-counters";
   struct {
      std::vector< std::string > words;
      const char* text;
   } const cases[] = {
      { {}, "nothing to learn from: give at least one --capture, --interface or --bridge" },
      { { "--frob" }, "'--frob': no such option, or the beginning of more than one" },
      { { "-x" }, "-x: no such option" },
      { { "--p", "max" }, "'--p': no such option, or the beginning of more than one" },
      { { "--bridge" }, "--bridge: needs a value" },
      { { "--json=1" }, "'--json=1': the option takes no value" },
      { { "--bridge", "b", "--vlan-counters", "a/b" },
        "--vlan-counters: table name 'a/b' must have 1 to 200 bytes, no '/' and no NUL, and not begin with a dot" },
      { { "--capture", "a", "--table", longName }, longNameRefused.c_str() },
      { { "--capture", "a", "--table", "t", "--vlan-counters", "t" },
        "--vlan-counters 't': its table 't' is the table of hosts already; give one of them another name" },
      { { "--vlan-counters", "t", "--table", "t-snapshot", "--interface", "a" },
        "--vlan-counters 't': its table 't-snapshot' is the table of hosts already; give one of them another name" },
      { { "a.pcap" }, "'a.pcap': not an option; put --capture, --interface or --bridge before it" },
      { { "--native-vlan", "0" }, "--native-vlan '0': give a whole number from 1 to 4094" },
      { { "--native-vlan", "4095" }, "--native-vlan '4095': give a whole number from 1 to 4094" },
      { { "--native-vlan", "1x" }, "--native-vlan '1x': give a whole number from 1 to 4094" },
      { { "--capacity", "-1" }, "--capacity '-1': give a whole number from 1 to 268435456" },
      { { "--capacity", "99999999999999999999" }, "--capacity '99999999999999999999': give a whole number from 1 to 268435456" },
      { { "--aging-time", "nan" }, "--aging-time 'nan': give seconds, from 0 to 1000000" },
      { { "--aging-time", "1e7" }, "--aging-time '1e7': give seconds, from 0 to 1000000" },
      { { "--aging-time", "1e-10" }, "--aging-time '1e-10': give seconds, from 0 to 1000000" },
      { { "--statistics=0" }, "--statistics '0': give seconds, more than 0 to 1000000" },
      { { "--pace", "fast" }, "--pace 'fast': give 'real' or 'max'" },
      { { "--table", "../x" },
        "--table: table name '../x' must have 1 to 200 bytes, no '/' and no NUL, and not begin with a dot" },
      { { "--capture", "" }, "--capture '': no name; give a file" },
      { { "--interface", "=Ethernet1" }, "--interface '=Ethernet1': no name; give a device" },
      { { "--interface", "eth0=" },
        "--interface 'eth0=': no port behind '='; give one like Ethernet3 or Port-Channel7, or leave '=' out" },
      { { "--interface", "eth0=Ethernt3" },
        "--interface 'eth0=Ethernt3': interface name 'Ethernt3' is not valid: expected a name like "
                                            "Ethernet3, Ethernet3/2.100, Port-Channel7, Vlan10 or Cpu" },
      { { "--interface", "eth0", "--interface", "eth0=Et4" }, "--interface 'eth0': given twice; name each source once" },
      { { "--capture", "a", "--capture", "b=Ethernet1" },
        "--capture 'b': its port Ethernet1 is that of --capture 'a' already; give one of them another port with =PORT" },
      { { "--bridge", "b", "--exit-at-end" }, "--exit-at-end: there is no --capture that could end" },
   };
   for( const auto& c : cases ) {
      try {
         parsed( c.words );
         ADD_FAILURE() << "accepted, expected: " << c.text;
      } catch( const UsageError& e ) {
         EXPECT_STREQ( e.what(), c.text );
      }
   }
}

}
