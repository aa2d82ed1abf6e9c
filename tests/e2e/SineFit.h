#pragma once

#include <span>
#include <vector>

/// How well a signal is explained by sines of known frequency: the least-squares amplitudes, and
/// what is left over.
struct SineFit {
    std::vector<double> amplitudes;  ///< peak, in the order of the frequencies
    double residualRms;
};

/// Fits sine and cosine of every frequency (Hz) and a constant to the signal.
SineFit fitSines(std::span<const double> signal, double sampleRate,
                 std::span<const double> frequencies);
