#pragma once

#include "Options.h"
#include "Source.h"
#include <kel/Activity.h>
#include <kel/Dir.h>

namespace Fdbd {

/// The agent: learns as `options` ask, and prints or publishes, until `activity` is stopped, or the captures have ended where
/// that was asked for. What it publishes as entities stands below `root` meanwhile, see `Publisher`; the tree is used from this
/// thread alone. `report` takes lines for people. Returns the exit code. Throws `std::exception` when it can't begin or go on.
int run( const Options& options, Kel::Activity& activity, const Kel::Ptr< Kel::Dir >& root, const Reporter& report );

}
