// Std.FilePath, Std.Errc, Std.make_error_code and Std.ErrorCode.

#include <string>
#include <string_view>

#include "bindings.hpp"
#include "errc_table.hpp"
#include "ovex/lua/bind/function.hpp"
#include "ovex/lua/bind/user_type.hpp"
#include "ovex/lua/core/values.hpp"

namespace ovex::lua::core::detail {

namespace {

FilePath EmptyPath() {
    return {};
}
FilePath PathFromText(std::string_view text) {
    return FilePath(text);
}
std::string PathText(const FilePath& path) {
    return path.string();
}
// path / "more" and path / other_path, as std::filesystem joins them.
FilePath JoinText(const FilePath& base, std::string_view more) {
    return base / more;
}
FilePath JoinPath(const FilePath& base, const FilePath& more) {
    return base / more;
}
// Lua calls __eq for any two userdata; a path never equals another type.
int PathsEqual(lua_State* L) {
    const auto* a = bind::TryGet<FilePath>(L, 1);
    const auto* b = bind::TryGet<FilePath>(L, 2);
    lua_pushboolean(L, a != nullptr && b != nullptr && *a == *b);
    return 1;
}

ErrorCode Success() {
    return {};
}
ErrorCode MakeErrorCode(int value) {
    return std::make_error_code(static_cast<std::errc>(value));
}
int CodeValue(const ErrorCode& code) {
    return code.value();
}
std::string CodeText(const ErrorCode& code) {
    return std::string(code.category().name()) + ": " + code.message();
}

}  // namespace

void AddFilePath(lua_State* L, int std_table) {
    bind::UserType<FilePath>(L, "FilePath")
        .Constructor(bind::Overloads<&EmptyPath, &PathFromText>)
        .Meta("__tostring", bind::Fn<&PathText>)
        .Meta("__div", bind::Overloads<&JoinText, &JoinPath>)
        .Meta("__eq", bind::Raw<&PathsEqual>)
        .SetIn(std_table);
}

void AddErrorCodes(lua_State* L, int std_table) {
    bind::PushEnumTable(L, ErrcEntries());
    lua_setfield(L, std_table, "Errc");
    lua_pushcfunction(L, bind::Fn<&MakeErrorCode>);
    lua_setfield(L, std_table, "make_error_code");
    bind::UserType<ErrorCode>(L, "ErrorCode")
        .Constructor(bind::Fn<&Success>)
        .Method("value", bind::Fn<&CodeValue>)
        .Meta("__tostring", bind::Fn<&CodeText>)
        .SetIn(std_table);
}

}  // namespace ovex::lua::core::detail
