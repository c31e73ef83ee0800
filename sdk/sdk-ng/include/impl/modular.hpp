#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <typeindex>
#include <utility>
#include <vector>

#include "ovex/log/log.hpp"

namespace ovex::sdk::impl {

// A bag of modules grouped by the interface they are looked up by. Within an interface the
// modules keep the order in which they were added; a module's index is its place there.
// A missing module is an ordinary null answer.
template <typename Module>
class Modular {
public:
    virtual ~Modular() = default;

    // Logs the arrival at `verbosity`.
    template <typename I>
    std::pair<std::size_t, I*> AddModule(std::unique_ptr<I> module,
                                         int verbosity = ::ovex::log::kDebug) {
        I* raw = module.get();
        auto& modules = m_modules[std::type_index(typeid(I))];
        modules.push_back(std::move(module));
        const std::size_t index = modules.size() - 1;
        OVEX_LOG(verbosity, "Module '%s' added to the device (index %zu).", raw->GetName(), index);
        return {index, raw};
    }

    template <typename I>
    I* GetModule(std::size_t index = 0) const {
        const auto* modules = Find<I>();
        if (modules == nullptr || index >= modules->size()) {
            return nullptr;
        }
        return static_cast<I*>((*modules)[index].get());
    }

    template <typename I>
    std::vector<I*> GetModules() const {
        std::vector<I*> result;
        if (const auto* modules = Find<I>()) {
            result.reserve(modules->size());
            for (const auto& module : *modules) {
                result.push_back(static_cast<I*>(module.get()));
            }
        }
        return result;
    }

private:
    template <typename I>
    const std::vector<std::unique_ptr<Module>>* Find() const {
        const auto it = m_modules.find(std::type_index(typeid(I)));
        return it == m_modules.end() ? nullptr : &it->second;
    }

    std::map<std::type_index, std::vector<std::unique_ptr<Module>>> m_modules;
};

}  // namespace ovex::sdk::impl
