#include "faces/cascade_model.h"

#include <cmath>
#include <fstream>

namespace smartCrop {

FaceGeometryBlock::FaceGeometryBlock() {
    // A symmetric head of 66 points: jaw 0-16, brows 17-26, nose 27-35,
    // eyes 36-47, mouth 48-65, with the rows that anchor it (0, 8, 30, 36,
    // 48, 54) at their reference values.
    modelPoints.resize(66);
    for (int i = 0; i <= 16; ++i) {
        const float t = static_cast<float>(i - 8) / 8.0f;
        modelPoints[i] = {20.0f * t, 22.9008f - 28.5f * t * t, 21.3079f * t * t - 4.53572f};
    }
    for (int i = 17; i <= 26; ++i) {
        const float t = static_cast<float>(i - 17) / 9.0f * 2.0f - 1.0f;
        modelPoints[i] = {17.0f * t, -14.0f - 3.0f * (1 - t * t), 2.0f};
    }
    for (int i = 27; i <= 35; ++i) {
        const float t = static_cast<float>(i - 27);
        modelPoints[i] = {i < 31 ? 0.0f : 2.0f * static_cast<float>(i - 33),
                          -10.0f + 2.5f * std::min(t, 4.0f), -8.0f - std::min(t, 3.0f)};
    }
    for (int i = 36; i <= 47; ++i) {
        const float side = i < 42 ? -1.0f : 1.0f;
        const float a = static_cast<float>((i - 36) % 6) / 6.0f * 6.2831853f;
        modelPoints[i] = {side * 9.5f + 3.0f * std::cos(a), -9.74495f + 1.2f * std::sin(a),
                          -0.90532f};
    }
    for (int i = 48; i <= 65; ++i) {
        const float a = static_cast<float>(i - 48) / 18.0f * 6.2831853f;
        modelPoints[i] = {0.6f + 7.25f * -std::cos(a), 8.3f + 2.5f * std::sin(a), -2.7f};
    }
    modelPoints[0] = {-20.6547f, -5.64822f, 21.3079f};
    modelPoints[8] = {1.65875f, 22.9008f, -4.53572f};
    modelPoints[30] = {-0.11106f, -2.62069f, -13.4075f};
    modelPoints[36] = {-12.5316f, -9.74495f, -0.90532f};
    modelPoints[48] = {-6.63855f, 8.84013f, -2.74685f};
    modelPoints[54] = {7.86034f, 7.80446f, -2.63884f};
    auto mean = [&](int first) {
        FaceModelPoint sum{0, 0, 0};
        for (int i = first; i < first + 6; ++i) {
            sum.x += modelPoints[i].x;
            sum.y += modelPoints[i].y;
            sum.z += modelPoints[i].z;
        }
        const float sixth = 1.0f / 6.0f;
        return FaceModelPoint{sum.x * sixth, sum.y * sixth, sum.z * sixth};
    };
    derivedPoints = {mean(36), mean(42), modelPoints[30], modelPoints[48], modelPoints[54]};
}

std::string config_folder(const std::string& configPath) {
    const size_t slash = configPath.find_last_of('/');
    return slash == std::string::npos ? "." : configPath.substr(0, slash);
}

std::string resolve_model_path(const std::string& token, const std::string& folder) {
    if (std::ifstream(token, std::ios::binary)) return token;
    const size_t slash = token.find_last_of('/');
    std::string stem = slash == std::string::npos ? token : token.substr(slash + 1);
    const size_t dot = stem.find_last_of('.');
    if (dot != std::string::npos) stem = stem.substr(0, dot);
    return folder + "/" + stem;  // used whether or not it opens
}

CasCNNModel::CasCNNModel(const std::string& configPath) {
    std::ifstream config(configPath);
    if (!config) return;
    const std::string folder = config_folder(configPath);
    std::string token;
    while (config >> token) {
        if (token[0] == '#') {
            std::string rest;
            std::getline(config, rest);
            continue;
        }
        int32_t patch = 0;
        float threshold = 0.0f;
        config >> patch >> threshold;
        stage_models.push_back(
            std::make_shared<deepnet::DeepnetModel>(resolve_model_path(token, folder)));
        patch_sizes.push_back(patch);
        stage_thresholds.push_back(threshold);
    }
}

}  // namespace smartCrop
