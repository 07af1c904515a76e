#include "source/ScoreModel.h"

#include <algorithm>

#include "analysis/vector_math.h"

namespace smartCrop {

float aesthetic_score(float* features, const float* mean, const float* scale, const float* weight,
                      float bias) {
    vs_sub(kPooledFeatureCount, features, mean, features);
    vs_mul(kPooledFeatureCount, features, scale, features);
    float z = dot_product(kPooledFeatureCount, features, weight) - bias;
    z = std::min(3.0f, std::max(-3.0f, z));
    return (z + 3.0f) / 6.0f;
}

}  // namespace smartCrop
