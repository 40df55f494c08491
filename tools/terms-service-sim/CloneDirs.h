// The two sides of the clone-data requests: a directory standing for the
// set's storage and one standing for the USB device. A request names a file
// relative to each side; a name that is absolute, holds "..", or resolves
// (through symbolic links) outside its side is refused, never followed.
#ifndef TERMS_SIM_CLONE_DIRS_H
#define TERMS_SIM_CLONE_DIRS_H

#include <filesystem>
#include <string>

namespace termssim {

enum class CloneDirection { SetToUsb, UsbToSet };

class CloneDirs {
public:
    CloneDirs() = default;  // not configured: every copy is refused
    CloneDirs(std::filesystem::path setDir, std::filesystem::path usbDir);

    // Copies `src` (relative to the source side) over `dest` (relative to the
    // other side), replacing dest atomically; missing directories of dest are
    // made. False with a reason when refused or when the copy fails.
    bool Copy(CloneDirection direction, const std::string& src, const std::string& dest, std::string& error) const;

private:
    std::filesystem::path m_SetDir;
    std::filesystem::path m_UsbDir;
};

}  // namespace termssim

#endif
