// Fully connected networks. Layers are computed in turn, each into a matrix of its own; two storages take turns, so
// that the one about to be cleared never holds the layer's input. Rows do not depend on each other: a layer is computed
// in bands of rows that are still in the cache when the activation comes to them.
#include "kernels/net/net.h"

#include <stdlib.h>

#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

constexpr int32_t kBand = 256;

// Null for no activation.
const k::Kernel<k::NetActivation>* activation_of(int32_t code) {
    switch (code) {
        case TARN_ACTIVATION_NONE:
            return nullptr;
        case TARN_ACTIVATION_MIRRORED_SIGMOID:
            return &k::net_mirrored_sigmoid_f32;
        case TARN_ACTIVATION_SIGMOID:
            return &k::net_sigmoid_f32;
        case TARN_ACTIVATION_RECTIFIER:
            return &k::net_rectifier_f32;
        case TARN_ACTIVATION_LEAKY_RECTIFIER:
            return &k::net_leaky_rectifier_f32;
        case TARN_ACTIVATION_SOFTMAX:
            return &k::net_softmax_f32;
        default:
            abort();  // deliberate: codes are trusted, and a network that means another function must not run
    }
}

// Element kinds without a stride that fits floats are refused by the kernels, which then write nothing.
void compute_layer(const LumoMAT& y, const LumoMAT& x, const TarnLayer& layer) {
    const auto* activation = activation_of(layer.activation);
    const LumoMAT& w = *layer.weights;
    const int32_t element_stride = element_bytes(kind_of(x.elemtype));
    const void* bias = layer.bias ? layer.bias->data : nullptr;
    // A caller's matrix may be of another size than the result: what fits.
    const int32_t neurons = w.height < y.width ? w.height : y.width;
    const int32_t samples = x.height < y.height ? x.height : y.height;
    for (int32_t top = 0; top < samples; top += kBand) {
        const k::Size size{neurons, samples - top < kBand ? samples - top : kBand};
        void* out = row_at(y, top);
        const void* in = row_at(x, top);
        k::net_product_f32(in, x.stride, w.data, w.stride, bias, out, y.stride, element_stride, x.width, size);
        if (activation) (*activation)(out, y.stride, element_stride, size);
    }
}

}  // namespace

int64_t op_mlnn(const QuelCALL*, QuelERR* err, KaSMEMSTG* storage, LumoMAT* output, const LumoMAT* input,
                uint64_t count, const TarnLayer* layers) {
    const FloatState float_state;
    ScopedStorage own[2];
    for (ScopedStorage& s : own)
        if (!s.open(storage, 0, err)) return -1;
    LumoMAT between[2];
    const LumoMAT* x = input;
    for (uint64_t i = 0; i < count; ++i) {
        const bool last = i + 1 == count;
        KaSMEMSTG* turn = last ? storage : &own[i % 2].record;
        LumoMAT* y = last ? output : &between[i % 2];
        if (!last) KaSMEMSTGclear(turn);
        if (!last || !output->cls) {
            const LumoMATPARM parm = {x->elemtype, layers[i].weights->height, x->height, last ? 0u : 64u};
            if (!_LumoMATinit(y, &parm, turn, err)) return -1;
        }
        compute_layer(*y, *x, layers[i]);
        x = y;
    }
    return 0;
}

}  // namespace tarn::ipp
