// What the benchmark program's files share: the C++ virtual call that is the
// unit of every figure, and a started kernel for the length of one benchmark.
#pragma once

#include "kova/host.h"
#include "kova/kernel.h"

#include <filesystem>

namespace kova::bench {

// The unit. Its two overriders are defined in a file of their own, so the
// compiler cannot prove which one a call reaches and has to make a real
// indirect call.
struct Figure {
    virtual ~Figure() = default;
    virtual kvResult area(kvResult scale) const = 0;
};

struct Square : Figure {
    kvResult side = 3;
    kvResult area(kvResult scale) const override;
};

struct Strip : Figure {
    kvResult length = 5;
    kvResult area(kvResult scale) const override;
};

// A started kernel, taken down again when the benchmark ends, so that each
// benchmark starts from empty class caches.
class KernelSession {
  public:
    KernelSession() {
        // The benchmarks keep their settings apart from the user's.
        static const std::string folder =
            (std::filesystem::temp_directory_path() / "kova-bench-settings").string();
        kvSetRegistryStore((folder + "/registry").c_str());
        kvSetProfileFolder(folder.c_str());
        kvInitialize();
    }
    ~KernelSession() { kvTerminate(); }
    KernelSession(const KernelSession&) = delete;
    KernelSession& operator=(const KernelSession&) = delete;
};

} // namespace kova::bench
