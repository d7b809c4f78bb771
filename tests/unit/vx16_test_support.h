// Helpers shared by the comment-headed recording tests: a scratch directory,
// the throwing fatal handler, quiet reader arguments and stderr capture.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>

#include "fixture_registry.h"
#include "vxfil/fatal.h"
#include "vxfil/vxfil.h"

namespace vx16_test {

// A fresh directory under the system temporary directory, removed afterwards.
class scratch_dir {
  public:
    scratch_dir() {
        static std::atomic<int> counter{0};
        m_path = std::filesystem::temp_directory_path() /
                 ("brantel-vx16-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
        std::filesystem::remove_all(m_path);
        std::filesystem::create_directories(m_path);
    }
    ~scratch_dir() {
        std::error_code ec;
        std::filesystem::remove_all(m_path, ec);
    }
    scratch_dir(const scratch_dir&) = delete;
    scratch_dir& operator=(const scratch_dir&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    // Writes bytes to a file below the directory and returns its full path.
    std::string write(const std::string& name, const std::string& bytes) const {
        std::string p = (m_path / name).string();
        fixtures::write_file(p, bytes);
        return p;
    }

  private:
    std::filesystem::path m_path;
};

// Library ends become fatal_exit_called exceptions while this lives.
class throwing_fatal {
  public:
    throwing_fatal() : m_previous(VxFil::set_fatal_handler(VxFil::throwing_fatal_handler)) {}
    ~throwing_fatal() { VxFil::set_fatal_handler(m_previous); }

  private:
    VxFil::fatal_handler m_previous;
};

inline VxFil::VXFIL_arguments quiet_args(bool concat = false) {
    VxFil::VXFIL_arguments a;
    a.m_quiet = true;
    a.m_concat = concat;
    return a;
}

// All recording tests run with the zone already forced, unless a test says otherwise.
inline void force_utc_env() {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
}

// Runs f with standard error captured; returns what was written.
template <typename F> std::string capture_stderr(F&& f) {
    testing::internal::CaptureStderr();
    try {
        f();
    } catch (...) {
        testing::internal::GetCapturedStderr();
        throw;
    }
    return testing::internal::GetCapturedStderr();
}

} // namespace vx16_test
