// What the compiler says when a definition is wrong. Each case is a definition, which begins on line 2, and the report: all of
// it in the first cases, which show how the place is underlined, and its messages in the others.
#include "TestTree.h"

namespace Kelc {

namespace {

struct Case {
   const char* name;
   const char* definition;
   const char* report;
};

/// A report without the lines that show the source. Where the built-in types are declared is nobody's business here: "KEL"
/// stands for the file, the line and the column.
std::string messages( const std::string& report ) {
   std::istringstream lines( report );
   std::string out;
   for( std::string line; std::getline( lines, line ); ) {
      if( line.find( ": error: " ) == std::string::npos && line.find( ": note: " ) == std::string::npos ) continue;
      if( !out.empty() ) out += '\n';
      out += line.find( "/kel/Kel.kel:" ) == std::string::npos ? line : "KEL" + line.substr( line.find( ": note: " ) );
   }
   return out;
}

class Errors : public TestTree, public testing::WithParamInterface< Case > {};
class ErrorPlaces : public Errors {};

TEST_P( ErrorPlaces, AreShown ) {
   const auto result = define( GetParam().definition );
   EXPECT_EQ( result.err, GetParam().report );
   EXPECT_EQ( result.status, *GetParam().report ? 1 : 0 );
}

TEST_P( Errors, AreReportedWithPlaceAndReason ) {
   const auto result = define( GetParam().definition );
   EXPECT_EQ( messages( result.err ), GetParam().report );
   EXPECT_EQ( result.status, 1 );
}

const Case placeCases[] = {
   { "Nothing", "", "" },
   { "NoSemicolon", "value V : U8\nvalue W : U8;", R"(t.kel:3:1: error: expected ';' or '{' after the value type, found 'value'
value W : U8;
^~~~~
)" },
   { "GoesOnAfterAnError", "value V { a U8; b : ; c : U8; }\nenum { a; }",
     R"(t.kel:2:13: error: expected ':' before the type of the attribute, found 'U8'
value V { a U8; b : ; c : U8; }
            ^~
t.kel:2:21: error: expected a type, or one of ref, map, set, ordered, queue, table, optional, found ';'
value V { a U8; b : ; c : U8; }
                    ^
t.kel:3:6: error: expected the enumeration's name, found '{'
enum { a; }
     ^
)" },
   { "StrayBytes", "value V : U8; @@\x01 value W : U8;",
     "t.kel:2:15: error: '@@\\x01' is not part of the definition language\nvalue V : U8; @@? value W : U8;\n              "
     "^~~\n" },
   { "TabsAndUtf8KeepTheirWidth", "\tvalue V : \"\xc3\xa4\" ;",
     "t.kel:2:12: error: expected the type of the value's number or string, found '\"\\xc3\\xa4\"'\n\tvalue V : \"\xc3\xa4\" "
     ";\n\t          ^~~\n" },
   { "UnfinishedBlock", "entity E( name ) {\n   a : U8;", R"(t.kel:3:11: error: expected '}', found the end of the file
   a : U8;
          ^
t.kel:2:18: note: the block begins here
)" },
   { "UnfinishedText", "value V { a : String8 = \"abc; }\n", R"(t.kel:2:25: error: this text does not end on its line: expected "
value V { a : String8 = "abc; }
                        ^~~~~~~
t.kel:3:1: error: expected ';' after the attribute, found the end of the file

^
)" },
};

const Case syntaxCases[] = {
   { "Misspelt", "entty X( name ) {}",
     R"(t.kel:2:1: error: expected a declaration: value, enum, entity, machine, extern, namespace, trace or import (did you mean entity?), found 'entty')" },
   { "UnfinishedComment", "value V : U8; /* abc", R"(t.kel:2:15: error: this comment never ends: expected */)" },
   { "Numbers", "value V : U64 = 0x;\nvalue W : U64 = 18446744073709551616;\nvalue X : U64 = 12ab;",
     R"(t.kel:2:17: error: '0x' is no number: expected digits, 0x and hexadecimal digits, or digits with a point
t.kel:3:17: error: '18446744073709551616' does not fit in 64 bits
t.kel:4:17: error: '12ab' is no number: expected digits, 0x and hexadecimal digits, or digits with a point)" },
   { "LateImport", "value V : U8;\nimport \"kel/Kel.kel\";",
     R"(t.kel:3:8: error: imports stand before the first namespace and declaration)" },
};

const Case nameCases[] = {
   { "UnknownType", "value Colour : U8;\nvalue V { a : Color; }",
     R"(t.kel:3:15: error: unknown type Color (did you mean Colour?))" },
   { "HiddenNamespace", "value V : U8; namespace B::A; value W { v : A::V; }",
     R"(t.kel:2:45: error: unknown type A::V: inside B::A the name A means B::A; write ::A::V)" },
   { "DeclaredTwice", "value V : U8;\nenum V { a; }", R"(t.kel:3:6: error: A::V is already declared
t.kel:2:7: note: it is declared here)" },
   { "CppWords", "value V { class : U8; b : U8; }\nenum E { delete; }",
     R"(t.kel:2:11: error: 'class' is a word of C++ and can't name an attribute
t.kel:3:10: error: 'delete' is a word of C++ and can't name an enumerator)" },
   { "Spelling", "value v : U8;\nvalue W { Aa : U8; b_ : U8; }",
     R"(t.kel:2:7: error: a type's name begins with a capital letter and has no underscore: 'v'
t.kel:3:11: error: an attribute's name begins with a small letter and has no underscore: 'Aa'
t.kel:3:20: error: an attribute's name begins with a small letter and has no underscore: 'b_')" },
   { "GeneratedMembersClash", "entity E( name ) { foo : U8; fooIs : U8; bar : map U8 -> U8; newBar : U8; op bar(); name : U8; }",
     R"(t.kel:2:30: error: fooIs gives its class a member fooIs, and so does foo
t.kel:2:20: note: foo is declared here
t.kel:2:62: error: newBar gives its class a member newBar, and so does bar
t.kel:2:42: note: bar is declared here
t.kel:2:78: error: the operation has the name of a member that the attribute bar gives its class
t.kel:2:42: note: bar is declared here
t.kel:2:85: error: 'name' is a member that the framework gives every type of this kind)" },
   { "InheritedAttribute", "entity B( name ) { foo : U8; } entity E( name ) : B { foo : U8; }",
     R"(t.kel:2:55: error: foo is already declared
t.kel:2:20: note: it is declared here)" },
};

const Case valueCases[] = {
   { "DefaultOutOfRange", "value V : U16 in 1..4094;\nvalue W : U8 = 256;\nvalue X { v : V = 4095; }",
     R"(t.kel:2:7: error: V can't begin as 0, which is out of its range: give its default with = N
t.kel:2:18: note: the bound stands here
t.kel:3:16: error: 256 is not in 0..255, the range of W
t.kel:3:7: note: W is declared here
t.kel:4:19: error: 4095 is not in 1..4094, the range of V
t.kel:2:7: note: V is declared here)" },
   { "BoundsOutOfType",
     "value V : U8 in 1..256 = 1;\nvalue W : U8 in 9..3 = 5;\nvalue X : String8 in 1..5;\nvalue Y : U8 max 5;\n"
     "value Z : Seconds in 0..1;",
     R"(t.kel:2:20: error: 256 is not in 0..255, the range of U8
KEL: note: U8 is declared here
t.kel:3:20: error: the upper bound is below the lower one
t.kel:3:17: note: the lower bound stands here
t.kel:3:24: error: 5 is not in 9..3, the range of W
t.kel:3:7: note: W is declared here
t.kel:4:25: error: a string is bounded by its bytes: expected max N
t.kel:5:18: error: max N bounds the bytes of a string: expected in MIN..MAX
t.kel:6:25: error: only whole numbers have bounds; Seconds is none
KEL: note: it is declared here)" },
   { "TextTooLong", "value V : String8 max 3 = \"abcd\";", R"(t.kel:2:27: error: this text has 4 bytes; V takes 3
t.kel:2:23: note: as is declared here)" },
   { "WrongLiteral",
     "enum E { a; }\nvalue V { b : bool = 1; e : E = c; n : U8 = \"x\"; t : Name = 5; l : U8 = { 1 }; f : U8 = other; }",
     R"(t.kel:3:22: error: bool takes true or false, not a number
t.kel:3:33: error: E has no enumerator c
t.kel:2:6: note: E is declared here
t.kel:3:45: error: U8 takes a number, not a text
t.kel:3:61: error: Name takes a text between quotes, not a number
t.kel:3:73: error: U8 takes a number, not a list
t.kel:3:89: error: 'other' is no constant of this type)" },
   { "ListTooLong", "value P { a : U8; }\nvalue V { p : P = { 1, 2 }; }", R"(t.kel:3:24: error: P has only 1 attribute
t.kel:2:7: note: it is declared here)" },
   { "Circle", "value P { a : Q; }\nvalue Q { b : P; }", R"(t.kel:3:15: error: Q contains itself
t.kel:2:15: note: it is contained here)" },
   { "NoOrderNoHash", "value P { a : U8; }\nvalue Q ordered { p : P; }\nvalue R no hash { a : U8; }\nvalue S { r : R; }",
     R"(t.kel:3:23: error: Q is ordered but p : P has no order
t.kel:2:7: note: P is declared here
t.kel:5:15: error: r : R has no hash: declare S with no hash or hash by hand
t.kel:4:7: note: R is declared here)" },
   { "Enumerators", "enum E { a; b = 0; a; c = 4294967295; d; }\nenum F {}", R"(t.kel:2:13: error: b has the number 0, as has a
t.kel:2:10: note: a is declared here
t.kel:2:20: error: a is already declared
t.kel:2:10: note: it is declared here
t.kel:2:39: error: the number of d does not fit in 32 bits
t.kel:3:6: error: F has no enumerator)" },
   { "EntityWordsInAValue",
     "value V { ref2 : ref W; silent b : U8; c : map U8 -> U8; d : W; virtual op x(); }\nentity W( name ) {}",
     R"(t.kel:2:11: error: an attribute of a value is written NAME : TYPE or NAME : TYPE = DEFAULT, nothing else
t.kel:2:32: error: an attribute of a value is written NAME : TYPE or NAME : TYPE = DEFAULT, nothing else
t.kel:2:40: error: an attribute of a value is written NAME : TYPE or NAME : TYPE = DEFAULT, nothing else
t.kel:2:62: error: W is no value, so it can't stand in one
t.kel:3:8: note: it is declared here
t.kel:2:76: error: a value has no virtual operations)" },
};

const Case entityCases[] = {
   { "ChildKey",
     "value Fid : U16;\nvalue Vid : U16;\nentity SviMappingState { key primaryVlan : Vid; }\nentity Config( name ) {\n"
     "   sviMapping : map Fid -> child SviMappingState;\n}",
     R"(t.kel:6:21: error: sviMapping is keyed by Fid but its child SviMappingState has the key primaryVlan : Vid
t.kel:4:30: note: the child's key is declared here)" },
   { "ChildName", "entity C( name : String8 ) {}\n"
     "entity E( name ) { a : map Name -> child C; b : map U8 -> child E; c : optional child K; }\nentity K { key k : U8; }\n"
     "entity N {}",
     R"(t.kel:3:28: error: a is keyed by Name but its child C is known by a name of type String8
t.kel:2:8: note: the child is declared here
t.kel:3:53: error: b is keyed by U8 but its child E is known by a name of type Name
t.kel:3:8: note: the child is declared here
t.kel:3:87: error: an optional child is created by its name: expected K( name ) without a key
t.kel:4:8: note: it is declared here
t.kel:5:8: error: N has neither a name nor a key: write N( name ), or declare a key)" },
   { "Elements",
     "entity E( name ) { a : E; b : map U8 -> E; c : ref U8; d : set E; e : map U8 -> child U8; f : map of U8 by x; }",
     R"(t.kel:2:24: error: E is no value: write ref E
t.kel:2:8: note: it is declared here
t.kel:2:41: error: E is no value: write ref or child before E
t.kel:2:8: note: it is declared here
t.kel:2:52: error: U8 is a value, not an entity
KEL: note: it is declared here
t.kel:2:64: error: E is no value, so it can't be a key
t.kel:2:8: note: it is declared here
t.kel:2:87: error: U8 is a value, not an entity
KEL: note: it is declared here
t.kel:2:108: error: U8 has no attribute x
KEL: note: it is declared here)" },
   { "TableRecords", "value P { n : Name; }\nvalue R { key : U32; p : P; }\nentity E( name ) { t : table of R by key; }",
     R"(t.kel:4:33: error: R has no fixed size, so it can't be a record in shared memory
t.kel:2:11: note: n : Name has none)" },
   { "KeysThatChange", "entity P( name ) { x : U8; }\nvalue K { a : U8; }\n"
     "entity E( name ) { p : map of ref P by x; q : map K -> U8; r : queue S8 of U8; }",
     R"(t.kel:4:40: error: x may change, so it can't key the references
t.kel:2:20: note: it is declared here
t.kel:4:51: error: K has no order, which every key needs: declare it ordered
t.kel:3:7: note: it is declared here
t.kel:4:70: error: a queue is indexed by U8, U16 or U32)" },
   { "Bases", "entity A1( name ) : B1 {}\nentity B1( name ) : A1 {}\nentity C : A1 { key k : U8; }\nvalue V : U8;\n"
     "entity D( name ) : V {}",
     R"(t.kel:2:21: error: A1 derives from itself
t.kel:3:21: note: through this base
t.kel:4:8: error: the base A1 is constructed with a name: write C( name )
t.kel:2:8: note: the base is declared here
t.kel:6:20: error: V can't be a base: it is no entity
t.kel:5:7: note: it is declared here)" },
   { "Derived", "value P { a : U8; }\nentity E( name ) { p : P; n : U8; derived x = p.b; derived y = n.a; derived z = q.a; }",
     R"(t.kel:3:49: error: P has no attribute b
t.kel:2:7: note: it is declared here
t.kel:3:64: error: n is no value with attributes
t.kel:3:27: note: it is declared here
t.kel:3:81: error: E has no attribute q)" },
   { "Narrow", "entity B( name ) { plain : map Name -> child B; virtual open : map Name -> child B; }\nentity C( name ) { }\n"
     "entity D( name ) : B { narrow plain : map Name -> child D; narrow open : map Name -> child C; narrow none : map "
     "Name -> child B; }",
     R"(t.kel:4:31: error: the base does not declare plain virtual, so it can't be narrowed
t.kel:2:20: note: it is declared here
t.kel:4:92: error: C does not derive from B
t.kel:2:82: note: which the base holds here
t.kel:4:102: error: the base B has no attribute none
t.kel:2:8: note: the base is declared here)" },
};

const Case machineCases[] = {
   { "Parameters", "entity E( name ) { x : U8; }\nmachine M( a, b, a ) { a : ref E; c : map U8 -> U8; }",
     R"(t.kel:3:15: error: M has no attribute b
t.kel:3:18: error: a is given twice)" },
   { "Handlers", "entity E( name ) { x : U8; m : map U8 -> U16; silent s : U8; const c : U8 = 1; }\nmachine M( e ) {\n"
     "   watch e : const E {\n      on y -> f;\n      on x( k ) -> g;\n      on s -> f;\n      on c -> f;\n"
     "      on m( k ) -> f;\n      on m( k ) -> h;\n      on start( k ) -> f;\n      on x -> ff;\n      op f();\n"
     "      op h( k : U16 );\n   }\n}",
     R"(t.kel:5:10: error: E has no attribute y
t.kel:2:8: note: it is declared here
t.kel:6:13: error: x is no collection, so it comes without a key
t.kel:2:20: note: it is declared here
t.kel:7:10: error: s is silent: its changes are not announced
t.kel:2:54: note: it is declared here
t.kel:8:10: error: c never changes by itself
t.kel:2:68: note: it is declared here
t.kel:9:20: error: f takes no single key
t.kel:13:10: note: it is declared here
t.kel:10:13: error: m comes with a key of type U8 but h takes U16
t.kel:14:13: note: the parameter is declared here
t.kel:11:17: error: start comes without a key
t.kel:12:15: error: there is no operation ff)" },
   { "From", "entity F { key k : U8; }\nentity E( name ) { f : map U8 -> child F; v : map U8 -> U8; r : map U8 -> ref F; }\n"
     "machine M( e ) {\n   watch e : E;\n   watch a : map U16 -> F from e.f;\n   watch b : map U8 -> E from e.f;\n"
     "   watch c : map U8 -> F from e.v;\n   watch d : map U8 -> F;\n   watch g : F from e.f;\n"
     "   watch h : map U8 -> F from e.r;\n}",
     R"(t.kel:6:18: error: a is keyed by U16 but f by U8
t.kel:3:20: note: f is declared here
t.kel:7:24: error: f holds F
t.kel:3:20: note: it is declared here
t.kel:8:33: error: v is no collection of entities
t.kel:3:43: note: it is declared here
t.kel:9:14: error: expected from and the collection that the reactors follow
t.kel:10:23: error: from stands behind a map
t.kel:11:33: error: reactors follow children, or references keyed by an attribute
t.kel:3:61: note: r is declared here)" },
   { "OutsideMachines", "entity E( name ) { watch w : E; owner o : E; on w -> f; op f(); }",
     R"(t.kel:2:26: error: only a machine watches entities or has an owner
t.kel:2:39: error: only a machine watches entities or has an owner
t.kel:2:46: error: only a machine handles events)" },
};

auto nameOf = []( const auto& info ) { return info.param.name; };
INSTANTIATE_TEST_SUITE_P( Places, ErrorPlaces, testing::ValuesIn( placeCases ), nameOf );
INSTANTIATE_TEST_SUITE_P( Syntax, Errors, testing::ValuesIn( syntaxCases ), nameOf );
INSTANTIATE_TEST_SUITE_P( Names, Errors, testing::ValuesIn( nameCases ), nameOf );
INSTANTIATE_TEST_SUITE_P( Values, Errors, testing::ValuesIn( valueCases ), nameOf );
INSTANTIATE_TEST_SUITE_P( Entities, Errors, testing::ValuesIn( entityCases ), nameOf );
INSTANTIATE_TEST_SUITE_P( Machines, Errors, testing::ValuesIn( machineCases ), nameOf );

}

}
