#include "Order.h"

#include <functional>
#include <map>
#include <set>

namespace Kelc {

namespace {

void eachRefOfOps( const std::vector< Op >& ops, const std::function< void( const TypeRef& ) >& visit ) {
   for( const Op& op : ops ) {
      visit( op.result.type );
      for( const Parameter& p : op.parameters ) visit( p.type );
   }
}

void eachRefOfAttr( const Attr& attr, const std::function< void( const TypeRef& ) >& visit ) {
   visit( attr.shape.key );
   visit( attr.shape.element );
   TypeRef keyed;
   keyed.decl = attr.shape.keyDecl;
   visit( keyed );
   if( !attr.watch ) return;
   for( const auto& inner : attr.watch->attrs ) eachRefOfAttr( *inner, visit );
   eachRefOfOps( attr.watch->ops, visit );
}

void eachRef( const Decl& decl, const std::function< void( const TypeRef& ) >& visit ) {
   visit( decl.base );
   visit( decl.basis );
   visit( decl.nameType );
   for( const auto& attr : decl.attrs ) eachRefOfAttr( *attr, visit );
   eachRefOfOps( decl.ops, visit );
   for( const auto& nested : decl.nested ) eachRef( *nested, visit );
}

const Decl* outermost( const Decl* decl ) {
   while( decl && decl->outer ) decl = decl->outer;
   return decl;
}

int rank( const Decl& decl ) {
   return decl.kind == Kind::enumeration ? 0 : decl.isValue() ? 1 : decl.isEntity() ? 2 : 3;
}

// A walk in depth over what each type needs, on an explicit stack: definition files may be long chains.
class Sorter {
 public:
   explicit Sorter( const Module& module ) : module_( module ) {}

   std::vector< const Decl* > run() {
      for( int wanted = 0; wanted < 4; ++wanted ) {
         for( const auto& decl : module_.decls ) {
            if( !decl->isExtern() && rank( *decl ) == wanted ) visit( *decl );
         }
      }
      return std::move( out_ );
   }

 private:
   struct Step {
      const Decl* decl;
      std::vector< const Decl* > needs;
      std::size_t next = 0;
   };

   std::vector< const Decl* > needsOf( const Decl& decl ) const {
      std::vector< const Decl* > out;
      eachRef( decl, [ & ]( const TypeRef& type ) {
         const Decl* needed = outermost( type.decl );
         if( needed && needed != &decl && needed->module == &module_ && !needed->isExtern() && rank( *needed ) <= rank( decl ) )
            out.push_back( needed );
      } );
      return out;
   }

   void visit( const Decl& first ) {
      if( !seen_.insert( &first ).second ) return;
      std::vector< Step > stack{ { &first, needsOf( first ) } };
      while( !stack.empty() ) {
         Step& top = stack.back();
         if( top.next == top.needs.size() ) {
            out_.push_back( top.decl );
            stack.pop_back();
         } else if( const Decl* needed = top.needs[ top.next++ ]; seen_.insert( needed ).second ) {
            stack.push_back( { needed, needsOf( *needed ) } );
         }
      }
   }

   const Module& module_;
   std::set< const Decl* > seen_;
   std::vector< const Decl* > out_;
};

}

std::vector< const Decl* > definitionOrder( const Module& module ) {
   return Sorter( module ).run();
}

std::vector< std::string > includesOf( const Module& module ) {
   std::set< std::string > out;
   for( const auto& decl : module.decls ) {
      if( decl->isExtern() ) continue;
      eachRef( *decl, [ & ]( const TypeRef& type ) {
         const Decl* needed = outermost( type.decl );
         if( !needed || !needed->module ) return;
         if( needed->isExtern() ) out.insert( needed->header );
         else if( needed->module != &module ) out.insert( needed->module->prefix + "/" + needed->module->name.text + ".h" );
      } );
      for( const auto& attr : decl->attrs ) {
         if( attr->shape.collection == Collection::table ) out.insert( "plexo/TableAttr.h" );
      }
   }
   return { out.begin(), out.end() };
}

}
