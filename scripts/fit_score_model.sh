#!/usr/bin/env bash
# Refits the aesthetic model's tables from the training photographs, within
# what the design fixes of the model (tools/score_model_design.h), and
# rewrites source/ScoreModelTables.cpp. Deterministic for the same photos.
# Arguments after the photo folder go to the fitting tool (--free: an
# unconstrained fit, for comparison).
set -euo pipefail
cd "$(dirname "$0")/.."
photos=${1:-$HOME/.cache/smartcrop/training-photos}
shift || true
bash scripts/fetch_training_photos.sh ../shared/training-photos.tsv "$photos"
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release --target fit_score_model
./build/release/tools/fit_score_model "$@" source/ScoreModelTables.cpp "$photos"/photos/*
clang-format -i source/ScoreModelTables.cpp
