// A fresh temporary directory for one test, removed afterwards.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

struct temp_dir {
    std::filesystem::path path;
    std::filesystem::path old_cwd;

    temp_dir() {
        std::mt19937_64 rng(std::random_device{}());
        path = std::filesystem::temp_directory_path() / ("brantel-test-" + std::to_string(rng()));
        std::filesystem::create_directories(path);
    }
    ~temp_dir() {
        if (!old_cwd.empty()) std::filesystem::current_path(old_cwd);
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
    }
    // Makes the directory the working directory until destruction.
    void enter() {
        old_cwd = std::filesystem::current_path();
        std::filesystem::current_path(path);
    }
    std::filesystem::path file(const std::string& name) const { return path / name; }
    void write(const std::string& name, const std::string& content) const {
        std::ofstream out(path / name, std::ios::binary | std::ios::trunc);
        out << content;
    }
    std::string read(const std::string& name) const {
        std::ifstream in(path / name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
};
