#include "host/safe_output.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

namespace smartCrop::host {

namespace {

std::string reason(int error) {
    return std::strerror(error);
}

bool exists(const std::string& path) {
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0;  // a link counts, wherever it points
}

[[noreturn]] void exists_error(const std::string& path) {
    throw ExistsError(path + " already exists");
}

// Into place without replacing: renameat2 where the file system has it, a
// hard link otherwise. Either fails if anything, a dangling link included,
// stands at `path`.
int place_new(const std::string& temporary, const std::string& path) {
    if (::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) return errno;
    if (::link(temporary.c_str(), path.c_str()) != 0) return errno;
    ::unlink(temporary.c_str());
    return 0;
}

}  // namespace

ProtectedFiles::ProtectedFiles(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        struct stat info;
        if (::stat(path.c_str(), &info) == 0) ids.insert({info.st_dev, info.st_ino});
    }
}

bool ProtectedFiles::contains(const std::string& path) const {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && ids.count({info.st_dev, info.st_ino}) > 0;
}

OutputGroup::~OutputGroup() {
    for (const Staged& s : staged) {
        if (!s.placed) ::unlink(s.temporary.c_str());
    }
}

void OutputGroup::stage(const std::string& path, const std::vector<uint8_t>& bytes) {
    if (inputs != nullptr && inputs->contains(path))
        throw HostError("cannot write " + path + ": it is an input of this run");
    struct stat info;
    if (::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
        throw HostError("cannot write " + path + ": it is a folder");
    if (!overwrite && exists(path)) exists_error(path);
    const std::filesystem::path target(path);
    const std::string folder = target.has_parent_path() ? target.parent_path().string() : ".";
    // Not named after the target: a name near the file system's limit
    // would leave no room for a longer temporary one.
    std::string temporary = folder + "/.smartcrop-XXXXXX";
    const int fd = ::mkstemp(temporary.data());  // O_EXCL: never an existing file or link
    if (fd < 0) throw HostError("cannot write " + path + ": " + reason(errno));
    staged.push_back({path, temporary});
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            const int error = n < 0 ? errno : EIO;
            ::close(fd);
            throw HostError("cannot write " + path + ": " + reason(error));
        }
        done += static_cast<size_t>(n);
    }
    if (::close(fd) != 0) throw HostError("cannot write " + path + ": " + reason(errno));
}

void OutputGroup::commit() {
    for (Staged& s : staged) {
        // rename replaces a link itself, never the file it points to.
        const int error = overwrite
                              ? (::rename(s.temporary.c_str(), s.path.c_str()) == 0 ? 0 : errno)
                              : place_new(s.temporary, s.path);
        if (error == 0) {
            s.placed = true;
            continue;
        }
        for (Staged& undo : staged) {
            if (undo.placed && !overwrite) ::unlink(undo.path.c_str());
            undo.placed = false;
        }
        if (error == EEXIST) exists_error(s.path);
        throw HostError("cannot write " + s.path + ": " + reason(error));
    }
    staged.clear();
}

void write_file_safely(const std::string& path, const std::vector<uint8_t>& bytes, bool overwrite,
                       const ProtectedFiles* inputs) {
    OutputGroup group(overwrite, inputs);
    group.stage(path, bytes);
    group.commit();
}

std::vector<std::string> unique_stems(const std::vector<std::string>& inputs) {
    std::set<std::string> taken;
    std::vector<std::string> stems;
    for (const std::string& input : inputs) {
        const std::string stem = std::filesystem::path(input).stem().string();
        std::string name = stem;
        for (int k = 2; !taken.insert(name).second; ++k) name = stem + "~" + std::to_string(k);
        stems.push_back(name);
    }
    return stems;
}

}  // namespace smartCrop::host
