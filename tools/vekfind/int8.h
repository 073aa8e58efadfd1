// 8-bit features made from others.
#pragma once

#include <optional>

#include "features/feature_writer.h"
#include "features/pieces.h"

namespace commands {

// Of integers, as the library takes them (see read_int8), with one line on the standard output
// about what was changed.
void write_int8(features::FeatureFile& file, features::FeatureWriter& writer);

// Floats times `scale`, rounded, and kept within -127 and 127.
void quantize(const float* floats, size_t count, float scale, int8_t* bytes);

// What brings the largest element of the file, prepared, to 127.
float fit_int8_scale(features::FeatureFile& file, const features::Preparation& preparation);

struct Recall {
    double share = 0;  // of the ten nearest rows as floats that are among the ten as 8-bit integers
    size_t nr_queries = 0, nr_rows = 0;
};

// Over rows spread evenly over the file, of which some are the queries. Nothing where there are too
// few rows.
std::optional<Recall> measure_recall(features::FeatureFile& file,
                                     const features::Preparation& preparation, float scale);

}  // namespace commands
