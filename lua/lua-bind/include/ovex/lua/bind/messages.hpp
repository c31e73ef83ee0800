#pragma once

// The texts of the errors that scripts see from the binding layer. Scripts and their authors
// match on them, so they stay exactly as they are.

namespace ovex::lua::bind::message {

inline constexpr char kNoMatchingOverload[] =
    "sol: no matching function call takes this number of arguments and the specified types";
inline constexpr char kNotAnInteger[] =
    "not a numeric type that fits exactly an integer (number maybe has significant decimals)";
inline constexpr char kNotANumber[] = "not a numeric type";
// A lua_pushfstring format: the refused operation ("clear", "insert", "add") and the type name.
inline constexpr char kCannotCallOn[] = "sol: cannot call %s on '%s'";
inline constexpr char kEnumerationReadOnly[] =
    "sol: cannot modify the elements of an enumeration table";

}  // namespace ovex::lua::bind::message
