#pragma once
// The library's one folder on disk: the error log lies in it, calibration
// and timebase caches in its cal_files/ subfolder.
//
// Linux has no machine-wide "program data" known folder. The default is
// /var/lib/Quillon/ when it can be created and written, otherwise the
// user's ~/.local/share/Quillon/ (the home folder comes from the user
// database, never from the environment). zrSetDataFolder replaces it for
// the whole process.
#include <string>

namespace zr {

// Ends with '/'. Empty when no folder could be had: paths are then relative.
std::string appDataFolder();
// appDataFolder() + "cal_files/", created if missing.
std::string calFilesFolder();
// Creates the folder (and parents) if needed; false if it cannot be used.
bool setAppDataFolder(const std::string& path);
// mkdir -p; true when the folder exists afterwards and is writable.
bool makeWritableFolder(const std::string& path);

}  // namespace zr
