#pragma once

#include "EmitParts.h"

// What the class of a machine and its source both need to know.
namespace Kelc::Machines {

using Strings = std::vector< std::string >;

bool isWatch( const Attr& attr );
bool isReactorMap( const Attr& attr );
bool isChildMap( const Attr& attr );

/// True when the attribute is a member of the class.
bool isStored( const Attr& attr );

/// ` { a(); b(); }` or ` {}`.
std::string body( const std::string& calls );
std::string trimmed( std::string calls );

std::string fooOf( const Attr& attr );
std::string mapOf( const Attr& attr );
/// The function that makes a map of reactors follow its collection.
std::string followOf( const Attr& attr );
std::string keyParam( const Attr& attr );
std::string keyType( const Attr& attr );
std::string watchedPtr( const Attr& attr );
std::string mapType( const Attr& attr );

/// The attribute that names the machine's owner, or null.
const Attr* ownerOf( const Decl& decl );
/// The handlers of one event.
std::vector< const Handler* > handlersOf( const std::vector< Handler >& all, std::string_view event );
/// What starts a machine: `on start`, or else the operation `handleInitialized()`.
std::string startCalls( const Decl& decl );
std::string goneCalls( const Decl& decl );
/// What happens when one of the machine's own attributes has changed: reactors follow it, then its handlers run.
std::string changedCalls( const Decl& decl, const Attr& attr, const std::string& key );
/// The call that a handler makes, from a reactor or from the machine itself; and all of them for one event of a reactor.
std::string call( const Handler& h, bool inReactor );
std::string watchCalls( const Attr& attr, const char* event );
/// Maps of reactors that follow a collection of the entity that `watching` watches.
std::vector< const Attr* > followers( const Decl& decl, const Attr& watching );
/// The key of an entity in the collection that the reactors follow.
std::string keyOfEntity( const Attr& attr, const std::string& entity );

/// A machine's constructor parameters, its owner last, and their names.
Strings declaredParameters( const Decl& decl );
Strings parameterNames( const Decl& decl );

}
