#pragma once
// A fresh folder under the system temp folder, removed with its contents at
// scope exit.
#include <filesystem>
#include <random>
#include <string>

namespace zr::test {

class TempFolder {
public:
    TempFolder() {
        std::random_device rd;
        path_ = std::filesystem::temp_directory_path() / ("zr_test_" + std::to_string(rd()) + std::to_string(rd()));
        std::filesystem::create_directories(path_);
    }
    ~TempFolder() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string str() const { return path_.string() + "/"; }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace zr::test
