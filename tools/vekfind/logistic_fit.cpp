#include "vekfind/logistic_fit.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace calibration {
namespace {

// The loss at one law, a and b of z = a * x + b, and its derivatives.
struct Loss {
    double value = 0, by_a = 0, by_b = 0, by_aa = 0, by_ab = 0, by_bb = 0;
};

// The squared distances made x, with mean 0 and deviation 1: Newton's steps are well conditioned
// whatever the features' unit.
class LossFunction {
public:
    explicit LossFunction(const Pairs& pairs) : m_pairs(pairs) {
        const double share_same = pairs.prior, share_other = 1 - pairs.prior;
        m_mean = share_same * mean_of(pairs.same, 0, 1) + share_other * mean_of(pairs.other, 0, 1);
        m_deviation = std::sqrt(share_same * mean_of(pairs.same, m_mean, 2) +
                                share_other * mean_of(pairs.other, m_mean, 2));
    }

    double deviation() const { return m_deviation; }
    // The law over squared distances themselves.
    LogisticLaw law(double a, double b) const {
        return {static_cast<float>(a / m_deviation),
                static_cast<float>(b - a * m_mean / m_deviation)};
    }

    Loss operator()(double a, double b) const {
        const auto nr_same = static_cast<double>(m_pairs.same.size());
        const auto nr_other = static_cast<double>(m_pairs.other.size());
        Loss loss;
        add(loss, a, b, m_pairs.same, m_pairs.prior / nr_same, (nr_same + 1) / (nr_same + 2));
        add(loss, a, b, m_pairs.other, (1 - m_pairs.prior) / nr_other, 1 / (nr_other + 2));
        return loss;
    }

private:
    static double mean_of(const std::vector<double>& values, double centre, int power) {
        double sum = 0;
        for (double value : values)
            sum += power == 1 ? value - centre : (value - centre) * (value - centre);
        return sum / static_cast<double>(values.size());
    }

    // The cross entropy of 1 / (1 + exp(z)) and the target, in a form that never overflows.
    void add(Loss& loss, double a, double b, const std::vector<double>& distances, double weight,
             double target) const {
        Loss sum;
        for (double distance : distances) {
            const double x = (distance - m_mean) / m_deviation, z = a * x + b;
            const double small = std::exp(-std::abs(z));
            const double probability = (z >= 0 ? small : 1) / (1 + small);
            sum.value += (z >= 0 ? target : target - 1) * z + std::log1p(small);
            const double slope = target - probability;
            const double curvature = small / ((1 + small) * (1 + small));
            sum.by_a += slope * x;
            sum.by_b += slope;
            sum.by_aa += curvature * x * x;
            sum.by_ab += curvature * x;
            sum.by_bb += curvature;
        }
        loss.value += weight * sum.value;
        loss.by_a += weight * sum.by_a;
        loss.by_b += weight * sum.by_b;
        loss.by_aa += weight * sum.by_aa;
        loss.by_ab += weight * sum.by_ab;
        loss.by_bb += weight * sum.by_bb;
    }

    const Pairs& m_pairs;
    double m_mean, m_deviation;
};

}  // namespace

double LogisticLaw::probability(double squared_distance) const {
    return 1 / (1 + std::exp(double{scale} * squared_distance + double{bias}));
}

double LogisticLaw::squared_distance(double probability) const {
    return (std::log((1 - probability) / probability) - double{bias}) / double{scale};
}

LogisticLaw fit_logistic_law(const Pairs& pairs) {
    const LossFunction loss_of(pairs);
    if (!(loss_of.deviation() > 0))  // all pairs are alike
        return {};
    double a = 0, b = std::log((1 - pairs.prior) / pairs.prior);
    Loss loss = loss_of(a, b);
    for (int step = 0; step < 100; ++step) {
        constexpr double RIDGE = 1e-12;  // keeps the determinant above 0
        const double aa = loss.by_aa + RIDGE, bb = loss.by_bb + RIDGE;
        const double determinant = aa * bb - loss.by_ab * loss.by_ab;
        const double to_a = -(bb * loss.by_a - loss.by_ab * loss.by_b) / determinant;
        const double to_b = -(aa * loss.by_b - loss.by_ab * loss.by_a) / determinant;
        const double descent = loss.by_a * to_a + loss.by_b * to_b;
        if (descent > -1e-10) {  // twice what is left to gain; after this step, its square
            a += to_a;
            b += to_b;
            break;
        }
        double length = 1;
        Loss next = loss_of(a + to_a, b + to_b);
        while (next.value > loss.value + 1e-4 * length * descent && length > 1e-10) {
            length /= 2;
            next = loss_of(a + length * to_a, b + length * to_b);
        }
        a += length * to_a;
        b += length * to_b;
        loss = next;
    }
    return loss_of.law(a, b);
}

double calibration_error(const LogisticLaw& law, const Pairs& pairs) {
    constexpr size_t BINS = 10;
    double differences[BINS] = {};  // of weighted probabilities and weighted pairs of one class
    const auto add = [&](const std::vector<double>& distances, double share, double truth) {
        const double weight = share / static_cast<double>(distances.size());
        for (double distance : distances) {
            const double probability = law.probability(distance);
            const auto bin = std::min(static_cast<size_t>(probability * BINS), BINS - 1);
            differences[bin] += weight * (probability - truth);
        }
    };
    add(pairs.same, pairs.prior, 1);
    add(pairs.other, 1 - pairs.prior, 0);
    return std::accumulate(differences, differences + BINS, 0.0,
                           [](double sum, double value) { return sum + std::abs(value); });
}

}  // namespace calibration
