#include "CloneDirs.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace termssim {
namespace fs = std::filesystem;
namespace {

// A name the request may use: relative, not empty, without ".." segments and NUL bytes.
bool IsPlainRelative(const std::string& name, std::string& error) {
    if (name.empty() || name.find('\0') != std::string::npos) {
        error = "a clone-data path must be a non-empty name";
        return false;
    }
    const fs::path path(name);
    if (path.is_absolute()) {
        error = "\"" + name + "\" is absolute; clone-data paths are relative to their directory";
        return false;
    }
    if (std::any_of(path.begin(), path.end(), [](const fs::path& segment) { return segment == ".."; })) {
        error = "\"" + name + "\" leaves its directory";
        return false;
    }
    return true;
}

bool IsInside(const fs::path& root, const fs::path& path) {
    const auto mismatch = std::mismatch(root.begin(), root.end(), path.begin(), path.end());
    return mismatch.first == root.end() && mismatch.second != path.end();
}

// The real path of `name` below `root` (symbolic links resolved), refused
// when it is not strictly inside root.
bool Resolve(const fs::path& root, const std::string& name, fs::path& resolved, std::string& error) {
    if (!IsPlainRelative(name, error)) return false;
    const fs::path realRoot = fs::canonical(root);
    resolved = fs::weakly_canonical(realRoot / name);
    if (!IsInside(realRoot, resolved)) {
        error = "\"" + name + "\" resolves outside its directory";
        return false;
    }
    return true;
}

bool CopyReplacing(const fs::path& source, const fs::path& target) {
    fs::create_directories(target.parent_path());
    const fs::path partial =
        target.parent_path() / ("." + target.filename().string() + ".part-" + std::to_string(getpid()));
    try {
        fs::copy_file(source, partial, fs::copy_options::overwrite_existing);
        fs::rename(partial, target);
    } catch (...) {
        std::error_code ignored;
        fs::remove(partial, ignored);
        throw;
    }
    return true;
}

}  // namespace

CloneDirs::CloneDirs(fs::path setDir, fs::path usbDir) : m_SetDir(std::move(setDir)), m_UsbDir(std::move(usbDir)) {}

bool CloneDirs::Copy(CloneDirection direction, const std::string& src, const std::string& dest,
                     std::string& error) const {
    if (m_SetDir.empty() || m_UsbDir.empty()) {
        error = "clone data is not configured (start the service with --set-dir and --usb-dir)";
        return false;
    }
    const bool toUsb = direction == CloneDirection::SetToUsb;
    try {
        fs::path source;
        fs::path target;
        if (!Resolve(toUsb ? m_SetDir : m_UsbDir, src, source, error)) return false;
        if (!Resolve(toUsb ? m_UsbDir : m_SetDir, dest, target, error)) return false;
        if (!fs::is_regular_file(source)) {
            error = "\"" + src + "\" is not a file";
            return false;
        }
        if (fs::is_directory(target)) {
            error = "\"" + dest + "\" is a directory";
            return false;
        }
        return CopyReplacing(source, target);
    } catch (const fs::filesystem_error& failure) {
        error = std::string("clone data failed: ") + failure.code().message();
        return false;
    }
}

}  // namespace termssim
