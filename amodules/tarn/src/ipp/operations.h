// The operations behind the table's slots, made of the table's rows: the function op_copy has the type that tarn.h
// publishes as TarnCopy, and slot::op_copy is where siblings find it. A function defined with other arguments is not
// the one declared here, and the module does not link.
#pragma once

#include <type_traits>

#include "ipp/context.h"

namespace tarn::ipp {

#define SLOT(number, name, qualified, function, Type) std::remove_pointer_t<Type> function;
#include "ipp/slots.def"

namespace slot {
#define SLOT(number, name, qualified, function, Type) inline constexpr Slot<Type> function{number};
#define SERVED SLOT
#include "ipp/slots.def"
}  // namespace slot

}  // namespace tarn::ipp
