#pragma once

#include <cstddef>
#include <cstdint>

/// The entity framework: reference-counted objects, containers, types that describe themselves, entities that notify.
namespace Kel {

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S8 = std::int8_t;
using S16 = std::int16_t;
using S32 = std::int32_t;
using S64 = std::int64_t;

// The 64-bit types as value members, aligned to 4 in either word size, so that a value has one layout.
using U64a4 [[gnu::aligned( 4 )]] = U64;
using S64a4 [[gnu::aligned( 4 )]] = S64;
using F64a4 [[gnu::aligned( 4 )]] = double;

/// A time span or a point in time, in seconds.
using Seconds = double;

}
