// Kernel lists. A family's list, <family>.def, has one row per operation:
//
//   KERNELS(and, Binary, u8_s16_s32, c1_c3_c3x)     and_u8_c1, and_u8_c3, ... and_s32_c3x, of signature Binary
//   KERNEL(find_stretches, FindStretches)           a kernel that has no types or forms
//
// The family's header includes the list with TARN_KERNELS and TARN_KERNEL, which declare each kernel's five bodies and
// its table (tarn::k::and_u8_c1), and the operation's kernels by type and form (tarn::k::and_kernels). A source of the
// family says TARN_BODIES(and, Binary, u8_s16_s32, c1_c3_c3x, binary<And, T, kForm>): each of the kernels calls its own
// instance of the template. A row without its bodies does not link; bodies without a row are warned of.
#pragma once

// The sets of types and forms that rows name.
#define TARN_TYPES_u8(X, ...) X(u8, __VA_ARGS__)
#define TARN_TYPES_u8_s16(X, ...) X(u8, __VA_ARGS__) X(s16, __VA_ARGS__)
#define TARN_TYPES_u8_f32(X, ...) X(u8, __VA_ARGS__) X(f32, __VA_ARGS__)
#define TARN_TYPES_s16_f32(X, ...) X(s16, __VA_ARGS__) X(f32, __VA_ARGS__)
#define TARN_TYPES_u8_s16_s32(X, ...) TARN_TYPES_u8_s16(X, __VA_ARGS__) X(s32, __VA_ARGS__)
#define TARN_TYPES_u8_s16_f32(X, ...) TARN_TYPES_u8_s16(X, __VA_ARGS__) X(f32, __VA_ARGS__)
#define TARN_TYPES_u8_s16_u16_f32(X, ...) TARN_TYPES_u8_s16_f32(X, __VA_ARGS__) X(u16, __VA_ARGS__)
#define TARN_TYPES_u8_s32_f32(X, ...) TARN_TYPES_u8_f32(X, __VA_ARGS__) X(s32, __VA_ARGS__)
#define TARN_TYPES_s16_s32_f32(X, ...) TARN_TYPES_s16_f32(X, __VA_ARGS__) X(s32, __VA_ARGS__)
#define TARN_TYPES_u8_s16_s32_s64(X, ...) TARN_TYPES_u8_s16_s32(X, __VA_ARGS__) X(s64, __VA_ARGS__)

#define TARN_FORMS_c3(X, ...) X(c3, __VA_ARGS__)
#define TARN_FORMS_c3_c4(X, ...) X(c3, __VA_ARGS__) X(c4, __VA_ARGS__)
#define TARN_FORMS_c1_c3_c4(X, ...) X(c1, __VA_ARGS__) X(c3, __VA_ARGS__) X(c4, __VA_ARGS__)
#define TARN_FORMS_c1_c3_c3x(X, ...) X(c1, __VA_ARGS__) X(c3, __VA_ARGS__) X(c3x, __VA_ARGS__)
#define TARN_FORMS_c1_c3_c4_c3x(X, ...) TARN_FORMS_c1_c3_c4(X, __VA_ARGS__) X(c3x, __VA_ARGS__)
#define TARN_FORMS_c1_c2_c3_c4_c3x(X, ...) TARN_FORMS_c1_c3_c4_c3x(X, __VA_ARGS__) X(c2, __VA_ARGS__)

// ---- Declarations (in headers) ------------------------------------------------------------------------------------

#define TARN_DECLARE_AT(level, name, Fn) \
    namespace level {                    \
    Fn name;                             \
    }
#define TARN_ADDRESS_AT(level, name) &level::name,

// A kernel's five bodies and its table.
#define TARN_KERNEL(name, Fn)              \
    TARN_LEVELS(TARN_DECLARE_AT, name, Fn) \
    inline constexpr Kernel<Fn> name{{TARN_LEVELS(TARN_ADDRESS_AT, name)}};

#define TARN_KERNEL_OF_FORM(form, type, op, Fn) TARN_KERNEL(op##_##type##_##form, Fn)
#define TARN_KERNELS_OF_TYPE(type, forms, op, Fn) TARN_FORMS_##forms(TARN_KERNEL_OF_FORM, type, op, Fn)
#define TARN_CELL_OF_FORM(form, type, op) set.cells[int(Type::type)][int(Form::form)] = &op##_##type##_##form;
#define TARN_CELLS_OF_TYPE(type, forms, op) TARN_FORMS_##forms(TARN_CELL_OF_FORM, type, op)

// The kernels of a row, and the set of them.
#define TARN_KERNELS(op, Fn, types, forms)                                                                     \
    TARN_TYPES_##types(TARN_KERNELS_OF_TYPE, forms, op, Fn) inline constexpr KernelSet<Fn> op##_kernels = [] { \
        KernelSet<Fn> set;                                                                                     \
        TARN_TYPES_##types(TARN_CELLS_OF_TYPE, forms, op) return set;                                          \
    }();

// ---- Names (for the coverage test) --------------------------------------------------------------------------------

#define TARN_NAME_OF_FORM(form, type, op) #op "_" #type "_" #form,
#define TARN_NAMES_OF_TYPE(type, forms, op) TARN_FORMS_##forms(TARN_NAME_OF_FORM, type, op)
#define TARN_NAMES(op, Fn, types, forms) TARN_TYPES_##types(TARN_NAMES_OF_TYPE, forms, op)

// ---- Bodies (in sources) ------------------------------------------------------------------------------------------

// A named function for each kernel of a row, which hands its arguments to the body, an expression in T and kForm, and
// leaves the wide registers clean (body.h). How many arguments there are stands beside the signature: #define
// TARN_ARITY_Binary 7.
#define TARN_BODIES(op, Fn, types, forms, ...) TARN_TYPES_##types(TARN_BODIES_OF_TYPE, forms, op, Fn, (__VA_ARGS__))
#define TARN_BODIES_OF_TYPE(type, forms, op, Fn, body) TARN_FORMS_##forms(TARN_BODY_OF_FORM, type, op, Fn, body)
#define TARN_BODY_OF_FORM(form, type, op, Fn, body) \
    TARN_BODY(op##_##type##_##form, Fn, element::type, Form::form, body, TARN_ARITY_##Fn)
#define TARN_BODY(name, Fn, type, form, body, arity) TARN_BODY_COUNTED(name, Fn, type, form, body, arity)
#define TARN_BODY_COUNTED(name, Fn, type, form, body, arity) TARN_BODY_##arity(name, Fn, type, form, body)
#define TARN_BODY_WITH(type, form)   \
    using T [[maybe_unused]] = type; \
    [[maybe_unused]] constexpr Form kForm = form;
#define TARN_ARG(Fn, i) Arg<Fn, i> a##i
#define TARN_BODY_4(name, Fn, type, form, body)                                       \
    Status name(TARN_ARG(Fn, 0), TARN_ARG(Fn, 1), TARN_ARG(Fn, 2), TARN_ARG(Fn, 3)) { \
        TARN_BODY_WITH(type, form) return clean(body(a0, a1, a2, a3));                \
    }
#define TARN_BODY_5(name, Fn, type, form, body)                                                        \
    Status name(TARN_ARG(Fn, 0), TARN_ARG(Fn, 1), TARN_ARG(Fn, 2), TARN_ARG(Fn, 3), TARN_ARG(Fn, 4)) { \
        TARN_BODY_WITH(type, form) return clean(body(a0, a1, a2, a3, a4));                             \
    }
#define TARN_BODY_6(name, Fn, type, form, body)                                                      \
    Status name(TARN_ARG(Fn, 0), TARN_ARG(Fn, 1), TARN_ARG(Fn, 2), TARN_ARG(Fn, 3), TARN_ARG(Fn, 4), \
                TARN_ARG(Fn, 5)) {                                                                   \
        TARN_BODY_WITH(type, form) return clean(body(a0, a1, a2, a3, a4, a5));                       \
    }
#define TARN_BODY_7(name, Fn, type, form, body)                                                                       \
    Status name(TARN_ARG(Fn, 0), TARN_ARG(Fn, 1), TARN_ARG(Fn, 2), TARN_ARG(Fn, 3), TARN_ARG(Fn, 4), TARN_ARG(Fn, 5), \
                TARN_ARG(Fn, 6)) {                                                                                    \
        TARN_BODY_WITH(type, form) return clean(body(a0, a1, a2, a3, a4, a5, a6));                                    \
    }
#define TARN_BODY_8(name, Fn, type, form, body)                                                                       \
    Status name(TARN_ARG(Fn, 0), TARN_ARG(Fn, 1), TARN_ARG(Fn, 2), TARN_ARG(Fn, 3), TARN_ARG(Fn, 4), TARN_ARG(Fn, 5), \
                TARN_ARG(Fn, 6), TARN_ARG(Fn, 7)) {                                                                   \
        TARN_BODY_WITH(type, form) return clean(body(a0, a1, a2, a3, a4, a5, a6, a7));                                \
    }

namespace tarn::k {

// The i-th argument type of a function type.
template <class Fn, int i>
struct ArgOf;
template <class R, class First, class... Rest, int i>
struct ArgOf<R(First, Rest...), i> : ArgOf<R(Rest...), i - 1> {};
template <class R, class First, class... Rest>
struct ArgOf<R(First, Rest...), 0> {
    using Type = First;
};
template <class Fn, int i>
using Arg = typename ArgOf<Fn, i>::Type;

}  // namespace tarn::k
