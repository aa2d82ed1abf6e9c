#include "SineFit.h"

#include <cmath>
#include <cstddef>
#include <numbers>

namespace {

/// Solves the small symmetric system by elimination with pivots; `a` is n rows of n + 1.
std::vector<double> solve(std::vector<std::vector<double>> a) {
    const std::size_t n = a.size();
    for (std::size_t column = 0; column < n; ++column) {
        std::size_t pivot = column;
        for (std::size_t row = column + 1; row < n; ++row) {
            if (std::abs(a[row][column]) > std::abs(a[pivot][column])) {
                pivot = row;
            }
        }
        std::swap(a[column], a[pivot]);
        for (std::size_t row = 0; row < n; ++row) {
            if (row == column) {
                continue;
            }
            const double factor = a[row][column] / a[column][column];
            for (std::size_t k = column; k <= n; ++k) {
                a[row][k] -= factor * a[column][k];
            }
        }
    }
    std::vector<double> result(n);
    for (std::size_t i = 0; i < n; ++i) {
        result[i] = a[i][n] / a[i][i];
    }
    return result;
}

}  // namespace

SineFit fitSines(std::span<const double> signal, double sampleRate,
                 std::span<const double> frequencies) {
    const std::size_t terms = 2 * frequencies.size() + 1;
    std::vector<double> basis(terms);
    const auto fill = [&](std::size_t frame) {
        for (std::size_t f = 0; f < frequencies.size(); ++f) {
            const double phase =
                2 * std::numbers::pi * frequencies[f] * static_cast<double>(frame) / sampleRate;
            basis[2 * f] = std::sin(phase);
            basis[2 * f + 1] = std::cos(phase);
        }
        basis[terms - 1] = 1.0;
    };
    std::vector<std::vector<double>> normal(terms, std::vector<double>(terms + 1, 0.0));
    for (std::size_t i = 0; i < signal.size(); ++i) {
        fill(i);
        for (std::size_t r = 0; r < terms; ++r) {
            for (std::size_t c = 0; c < terms; ++c) {
                normal[r][c] += basis[r] * basis[c];
            }
            normal[r][terms] += basis[r] * signal[i];
        }
    }
    const std::vector<double> weights = solve(normal);
    double sum = 0;
    for (std::size_t i = 0; i < signal.size(); ++i) {
        fill(i);
        double rest = signal[i];
        for (std::size_t t = 0; t < terms; ++t) {
            rest -= weights[t] * basis[t];
        }
        sum += rest * rest;
    }
    SineFit fit;
    for (std::size_t f = 0; f < frequencies.size(); ++f) {
        fit.amplitudes.push_back(std::hypot(weights[2 * f], weights[2 * f + 1]));
    }
    fit.residualRms = std::sqrt(sum / static_cast<double>(signal.size()));
    return fit;
}
