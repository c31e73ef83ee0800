#pragma once

// A vector provider whose transfers the test delivers, one byte vector each.

#include <any>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <system_error>
#include <vector>

#include "impl/acquisition/data_provider.hpp"
#include "scripted_run.hpp"

namespace ovex::sdk::testing {

using Block = std::vector<std::byte>;

class ScriptedProvider final : public acquisition::IVectorDataProvider {
public:
    using Buffer = std::shared_ptr<Block>;

    std::error_code Start(std::uint64_t size) override {
        if (start_error) {
            return start_error;
        }
        transfer_size = size;
        run.Start();
        for (auto& block : ready_at_start) {
            Deliver(std::move(block));
        }
        ready_at_start.clear();
        return {};
    }
    std::error_code Stop() override { return run.Stop(); }
    bool IsRunning() override { return run.IsRunning(); }
    // Takes the number of transfers in flight.
    std::error_code Configure(std::any settings) override {
        in_flight = std::any_cast<std::uint16_t>(settings);
        return {};
    }
    std::error_code GetData(Buffer& data) override {
        data = run.Pop();
        return {};
    }

    void Deliver(Block block) { run.Deliver(std::make_shared<Block>(std::move(block))); }
    void EndByItself(std::error_code error) { run.EndByItself(error); }

    ScriptedRun<Buffer> run;
    std::error_code start_error;
    // Frames the board had ready: they arrive as soon as the transfers run.
    std::vector<Block> ready_at_start;
    std::uint64_t transfer_size = 0;
    std::optional<std::uint16_t> in_flight;
};

}  // namespace ovex::sdk::testing
