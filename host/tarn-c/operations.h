// The companion's operations, of the types that the module's table gives them.
#pragma once

#include <type_traits>

#include "ipp/context.h"

namespace tarn::ipp {

#define SLOT(number, name, qualified, function, Type)
#define SERVED(number, name, qualified, function, Type) std::remove_pointer_t<Type> function;
#include "ipp/slots.def"

// Where operations of the module are found, through the table that a call came by.
namespace slot {
#define SLOT(number, name, qualified, function, Type) inline constexpr Slot<Type> function{number};
#include "ipp/slots.def"
}  // namespace slot

}  // namespace tarn::ipp
