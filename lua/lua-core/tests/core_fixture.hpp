#pragma once

// A state with Log and Std, whose Std.sleep records the waits instead of making them.

#include <chrono>
#include <vector>

#include "lua_fixture.hpp"
#include "ovex/lua/core/lua_core.hpp"

namespace ovex::lua::core::testing {

class CoreFixture : public bind::testing::LuaFixture {
protected:
    CoreFixture() {
        EXPECT_FALSE(AddLogBindings(L));
        EXPECT_FALSE(AddStdBindings(L));
        SetSleeper(L, [this](std::chrono::duration<double> duration) {
            sleeps.push_back(duration.count());
        });
    }

    std::vector<double> sleeps;
};

}  // namespace ovex::lua::core::testing
