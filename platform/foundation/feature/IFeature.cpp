#include "foundation/feature/IFeature.hpp"

#include <cstddef>
#include <map>
#include <mutex>
#include <new>
#include <string>

namespace foundation::feature {
namespace {

class Switches final : public IFeature {
  public:
    bool isEnabled(std::string_view name, bool initially) const noexcept override {
        const std::lock_guard lock(mutex_);
        const auto found = switches_.find(name);
        return found != switches_.end() ? found->second : initially;
    }

    void set(std::string_view name, bool enabled) override {
        const std::lock_guard lock(mutex_);
        switches_.insert_or_assign(std::string(name), enabled);
    }

    void reset(std::string_view name) noexcept override {
        const std::lock_guard lock(mutex_);
        if (const auto found = switches_.find(name); found != switches_.end()) {
            switches_.erase(found);
        }
    }

  private:
    mutable std::mutex mutex_;
    std::map<std::string, bool, std::less<>> switches_;  // guarded by mutex_
};

}  // namespace

IFeature::~IFeature() = default;

IFeature& IFeature::instance() noexcept {
    // Never destroyed: stream buffers ask while the process ends. And not on the heap: asking must not throw.
    alignas(Switches) static std::byte storage[sizeof(Switches)];
    static auto* const switches = new (storage) Switches;
    return *switches;
}

}  // namespace foundation::feature
