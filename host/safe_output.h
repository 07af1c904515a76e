// Writing files so that nothing a user already had is lost or silently
// replaced: each file goes to a temporary name in its own folder and is then
// moved into place, never through a symbolic link, and an existing file is
// replaced only when the caller says so. A group of files lands whole or not
// at all.
#ifndef SMARTCROP_HOST_SAFE_OUTPUT_H
#define SMARTCROP_HOST_SAFE_OUTPUT_H

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/host_error.h"

namespace smartCrop::host {

// The target exists and replacing was not allowed.
struct ExistsError : HostError {
    using HostError::HostError;
};

// Files no output may replace, whatever the caller allows: a run's inputs.
// Known by device and inode (links followed), so another name for an input
// is still the input.
class ProtectedFiles {
public:
    ProtectedFiles() = default;
    // Those of `paths` that exist now.
    explicit ProtectedFiles(const std::vector<std::string>& paths);
    bool contains(const std::string& path) const;

private:
    std::set<std::pair<uint64_t, uint64_t>> ids;
};

class OutputGroup {
public:
    explicit OutputGroup(bool overwrite, const ProtectedFiles* inputs = nullptr)
        : overwrite(overwrite), inputs(inputs) {}
    // Removes what is staged and not committed.
    ~OutputGroup();
    OutputGroup(const OutputGroup&) = delete;
    OutputGroup& operator=(const OutputGroup&) = delete;

    // Writes `bytes` to a temporary beside `path`. Throws ExistsError when
    // `path` exists and may not be replaced (an input never may), HostError
    // for a failed write or a folder at `path`.
    void stage(const std::string& path, const std::vector<uint8_t>& bytes);
    // Moves every staged file to its path; when one cannot be, those already
    // moved are taken back (new files only: a replaced one stays replaced).
    void commit();

private:
    struct Staged {
        std::string path, temporary;
        bool placed = false;
    };
    bool overwrite;
    const ProtectedFiles* inputs;
    std::vector<Staged> staged;
};

// A group of one.
void write_file_safely(const std::string& path, const std::vector<uint8_t>& bytes, bool overwrite,
                       const ProtectedFiles* inputs = nullptr);

// Output names for a list of inputs: each input's file name without its
// extension, unique over the list; a repeated one gets "~2", "~3", ... in the
// order of the list ("a.jpg", "x/a.png" -> "a", "a~2").
std::vector<std::string> unique_stems(const std::vector<std::string>& inputs);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_SAFE_OUTPUT_H
