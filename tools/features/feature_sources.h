// One kind of FeatureFile for each format; open_features chooses.
#pragma once

#include <memory>
#include <string>

#include "features/feature_file.h"

namespace features {

std::unique_ptr<FeatureFile> open_npy(const std::string& path);
std::unique_ptr<FeatureFile> open_vecs(const std::string& path, ElementType type);
std::unique_ptr<FeatureFile> open_csv(const std::string& path);
std::unique_ptr<FeatureFile> open_group_features(const std::string& path);

}  // namespace features
