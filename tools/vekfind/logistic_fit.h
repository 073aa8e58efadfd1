// How distances become probabilities: the logistic law whose constants a group takes, fitted to
// pairs of which it is known whether they belong together.
#pragma once

#include <vector>

namespace calibration {

// Its constants are floats, as a group takes them.
struct LogisticLaw {
    float scale = 0, bias = 0;

    // That two features at this squared distance belong together.
    double probability(double squared_distance) const;
    // The other way round.
    double squared_distance(double probability) const;
};

struct Pairs {
    std::vector<double> same, other;  // squared distances, rising; neither empty
    double prior = 0.5;  // probability that two features belong together where the law will serve
};

// The law of highest likelihood, the pairs weighted so that those of one class make up `prior` of
// all. Newton's method with backtracking (Lin, Lin and Weng, "A note on Platt's probabilistic
// outputs for support vector machines", 2007), towards Platt's targets in place of 1 and 0
// ("Probabilistic outputs for support vector machines", 1999): (n + 1) / (n + 2) of n pairs of one
// class and 1 / (n + 2) of n others. So there is a finite law where a distance tells all pairs
// apart, as steep as so many pairs can vouch for. Its scale is not above 0 where pairs of one class
// are not the nearer ones.
LogisticLaw fit_logistic_law(const Pairs& pairs);

// How far the law's probabilities are from what the pairs show, on average: ten bins of equal width
// (the expected calibration error of Naeini, Cooper and Hauskrecht, "Obtaining well calibrated
// probabilities using Bayesian binning", 2015).
double calibration_error(const LogisticLaw& law, const Pairs& pairs);

}  // namespace calibration
