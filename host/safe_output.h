// Writing files so that nothing a user already had is lost or silently
// replaced: each file goes to a temporary name in its own folder and is then
// moved into place, never through a symbolic link, and an existing file is
// replaced only when the caller says so. A group of files lands whole or not
// at all.
#ifndef SMARTCROP_HOST_SAFE_OUTPUT_H
#define SMARTCROP_HOST_SAFE_OUTPUT_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/host_error.h"

namespace smartCrop::host {

// The target exists and replacing was not allowed.
struct ExistsError : HostError {
    using HostError::HostError;
};

class OutputGroup {
public:
    explicit OutputGroup(bool overwrite) : overwrite(overwrite) {}
    // Removes what is staged and not committed.
    ~OutputGroup();
    OutputGroup(const OutputGroup&) = delete;
    OutputGroup& operator=(const OutputGroup&) = delete;

    // Writes `bytes` to a temporary beside `path`. Throws ExistsError when
    // `path` exists and may not be replaced, HostError for a failed write.
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
    std::vector<Staged> staged;
};

// A group of one.
void write_file_safely(const std::string& path, const std::vector<uint8_t>& bytes, bool overwrite);

// Output names for a list of inputs: each input's file name without its
// extension, unique over the list; a repeated one gets "~2", "~3", ... in the
// order of the list ("a.jpg", "x/a.png" -> "a", "a~2").
std::vector<std::string> unique_stems(const std::vector<std::string>& inputs);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_SAFE_OUTPUT_H
