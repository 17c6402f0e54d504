// A small classifier (784-256-128-10, rectifier and softmax) and square products beside Eigen and OpenBLAS, on one
// thread. Weights lie a row per neuron everywhere. The peers get the activations written as plain loops where they have
// none of their own; all of them compute the whole network, bias included.
#include <cblas.h>

#include <Eigen/Core>
#include <cmath>
#include <cstdio>
#include <random>

#include "bench.h"
#include "kernels/base/runtime.h"
#include "quel/host.h"
#include "tarn.h"

extern "C" {
void openblas_set_num_threads(int);
char* openblas_get_corename(void);
}

namespace tarn::bench {
namespace {

using Matrix = Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
using Map = Eigen::Map<Matrix, Eigen::Aligned64>;

struct Layer {
    Matrix weights;
    Eigen::RowVectorXf bias;
    int32_t activation;
};

LumoMAT view(const Matrix& m) {
    return {"",
            LUMO_F32 | LUMO_CHANNELS(1),
            int32_t(m.cols()),
            int32_t(m.rows()),
            int32_t(m.cols() * 4),
            const_cast<float*>(m.data())};
}

Matrix random(int rows, int columns, float scale) {
    std::mt19937 rng(unsigned(rows * columns));
    std::normal_distribution<float> normal(0, scale);
    Matrix m(rows, columns);
    for (int64_t i = 0; i < m.size(); ++i) m.data()[i] = normal(rng);
    return m;
}

void activate(Matrix& y, int32_t activation) {
    if (activation == TARN_ACTIVATION_RECTIFIER) y = y.cwiseMax(0.0f);
    if (activation == TARN_ACTIVATION_SOFTMAX) {
        y.colwise() -= y.rowwise().maxCoeff().eval();
        y = y.array().exp();
        y.array().colwise() /= y.rowwise().sum().array().eval();
    }
}

// One network with everything its contenders need.
struct Network {
    std::vector<Layer> layers;
    Matrix input, ours;
    std::vector<Matrix> eigen, blas;
    std::vector<LumoMAT> views;
    std::vector<TarnLayer> records;
    QuelHOST* host;
    QuelOP op;

    Network(QuelHOST* host, const std::vector<int>& widths, int samples, bool bare) : host(host) {
        QuelHOSTfind(host, "mlnn", &op, nullptr);
        for (size_t i = 1; i < widths.size(); ++i) {
            const bool last = i + 1 == widths.size();
            layers.push_back({random(widths[i], widths[i - 1], 1.4f / std::sqrt(float(widths[i - 1]))),
                              random(1, widths[i], 1),
                              bare   ? TARN_ACTIVATION_NONE
                              : last ? TARN_ACTIVATION_SOFTMAX
                                     : TARN_ACTIVATION_RECTIFIER});
            eigen.push_back(Matrix(samples, widths[i]));
        }
        blas = eigen;
        input = random(samples, widths[0], 1);
        ours = eigen.back();
        views.reserve(2 * layers.size());
        for (const Layer& l : layers) {
            views.push_back(view(l.weights));
            views.push_back(
                {"", LUMO_F32 | LUMO_CHANNELS(1), int32_t(l.bias.size()), 1, 0, const_cast<float*>(l.bias.data())});
            const size_t n = views.size();
            records.push_back({&views[n - 2], bare ? nullptr : &views[n - 1], l.activation, 0});
        }
    }
    void run_ours() {
        LumoMAT in = view(input), out = view(ours);
        reinterpret_cast<TarnMultiLineNeuronet>(op.entry)(&op.call, nullptr, nullptr, &out, &in, records.size(),
                                                          records.data());
    }
    void run_eigen() {
        for (size_t i = 0; i < layers.size(); ++i) {
            const Matrix& x = i ? eigen[i - 1] : input;
            // One sample: the product by a vector, which Eigen has a faster routine for.
            if (x.rows() == 1)
                eigen[i].row(0).transpose().noalias() = layers[i].weights * x.row(0).transpose();
            else
                eigen[i].noalias() = x * layers[i].weights.transpose();
            if (records[i].bias) eigen[i].rowwise() += layers[i].bias;
            activate(eigen[i], layers[i].activation);
        }
    }
    void run_blas() {
        for (size_t i = 0; i < layers.size(); ++i) {
            const Matrix &x = i ? blas[i - 1] : input, &w = layers[i].weights;
            const int m = int(x.rows()), n = int(w.rows()), k = int(w.cols());
            if (m == 1)
                cblas_sgemv(CblasRowMajor, CblasNoTrans, n, k, 1, w.data(), k, x.data(), 1, 0, blas[i].data(), 1);
            else
                cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasTrans, m, n, k, 1, x.data(), k, w.data(), k, 0,
                            blas[i].data(), n);
            if (records[i].bias) blas[i].rowwise() += layers[i].bias;
            activate(blas[i], layers[i].activation);
        }
    }
    // Contenders that disagree measure nothing.
    bool agree() {
        run_ours(), run_eigen(), run_blas();
        const float scale = eigen.back().cwiseAbs().maxCoeff();
        return (ours - eigen.back()).cwiseAbs().maxCoeff() < 1e-4f * scale &&
               (ours - blas.back()).cwiseAbs().maxCoeff() < 1e-4f * scale;
    }
    // The weights, inputs and outputs read and written once.
    void limit() {
        std::vector<Stream> in{{reinterpret_cast<uint8_t*>(input.data()), input.size() * 4}};
        for (const Layer& l : layers)
            in.push_back({reinterpret_cast<uint8_t*>(const_cast<float*>(l.weights.data())), l.weights.size() * 4});
        copy_streams(in, {});
    }
};

void run(Bench& b) {
    openblas_set_num_threads(1);
    // It takes a processor that is younger than itself for a very old one; ./dev bench tells it which kernels to use.
    if (k::active_level >= 3 && std::string(openblas_get_corename()) == "Prescott")
        std::fprintf(stderr,
                     "neuronet: OpenBLAS runs its slowest kernels; set OPENBLAS_CORETYPE to Haswell or SkylakeX\n");
    QuelHOST* host = QuelHOSTopen(nullptr);
    if (QuelHOSTload(host, TARN_MODULE_FILE, nullptr) != 0) {
        std::fprintf(stderr, "neuronet: the module could not be loaded\n");
        return QuelHOSTclose(host);
    }
    const auto measure = [&](const std::string& name, const std::string& size, Network network, double units) {
        if (!b.wants(name)) return;
        if (!network.agree())
            return void(std::fprintf(stderr, "neuronet: %s %s: results differ\n", name.c_str(), size.c_str()));
        b.row(name, size, units,
              {{"ours", [&] { network.run_ours(); }},
               {"limit", [&] { network.limit(); }},
               {"Eigen", [&] { network.run_eigen(); }},
               {"OpenBLAS", [&] { network.run_blas(); }}});
    };
    for (const int samples : {1, 64, 1024})
        measure("mlnn 784-256-128-10, ns per sample", std::to_string(samples) + " samples",
                Network(host, {784, 256, 128, 10}, samples, false), samples);
    for (const int n : {16, 64, 256})
        measure("mlnn square product, ns per call", std::to_string(n) + " x " + std::to_string(n),
                Network(host, {n, n}, n, true), 1);
    QuelHOSTclose(host);
}

const Family family{"neuronet", run};

}  // namespace
}  // namespace tarn::bench
