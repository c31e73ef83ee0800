#include "errc_table.hpp"

#include <system_error>

namespace ovex::lua::core::detail {

namespace {

// The name is spelled once, so the table can't disagree with the enumeration.
#define OVEX_ERRC(name)                                    \
    bind::EnumEntry {                                      \
#name, static_cast < lua_Integer>(std::errc::name) \
    }

constexpr bind::EnumEntry kErrcEntries[] = {
    OVEX_ERRC(address_family_not_supported),
    OVEX_ERRC(address_in_use),
    OVEX_ERRC(address_not_available),
    OVEX_ERRC(already_connected),
    OVEX_ERRC(argument_list_too_long),
    OVEX_ERRC(argument_out_of_domain),
    OVEX_ERRC(bad_address),
    OVEX_ERRC(bad_file_descriptor),
    OVEX_ERRC(bad_message),
    OVEX_ERRC(broken_pipe),
    OVEX_ERRC(connection_aborted),
    OVEX_ERRC(connection_already_in_progress),
    OVEX_ERRC(connection_refused),
    OVEX_ERRC(connection_reset),
    OVEX_ERRC(cross_device_link),
    OVEX_ERRC(destination_address_required),
    OVEX_ERRC(device_or_resource_busy),
    OVEX_ERRC(directory_not_empty),
    OVEX_ERRC(executable_format_error),
    OVEX_ERRC(file_exists),
    OVEX_ERRC(file_too_large),
    OVEX_ERRC(filename_too_long),
    OVEX_ERRC(function_not_supported),
    OVEX_ERRC(host_unreachable),
    OVEX_ERRC(identifier_removed),
    OVEX_ERRC(illegal_byte_sequence),
    OVEX_ERRC(inappropriate_io_control_operation),
    OVEX_ERRC(interrupted),
    OVEX_ERRC(invalid_argument),
    OVEX_ERRC(invalid_seek),
    OVEX_ERRC(io_error),
    OVEX_ERRC(is_a_directory),
    OVEX_ERRC(message_size),
    OVEX_ERRC(network_down),
    OVEX_ERRC(network_reset),
    OVEX_ERRC(network_unreachable),
    OVEX_ERRC(no_buffer_space),
    OVEX_ERRC(no_child_process),
    OVEX_ERRC(no_link),
    OVEX_ERRC(no_lock_available),
    OVEX_ERRC(no_message_available),
    OVEX_ERRC(no_message),
    OVEX_ERRC(no_protocol_option),
    OVEX_ERRC(no_space_on_device),
    OVEX_ERRC(no_stream_resources),
    OVEX_ERRC(no_such_device_or_address),
    OVEX_ERRC(no_such_device),
    OVEX_ERRC(no_such_file_or_directory),
    OVEX_ERRC(no_such_process),
    OVEX_ERRC(not_a_directory),
    OVEX_ERRC(not_a_socket),
    OVEX_ERRC(not_a_stream),
    OVEX_ERRC(not_connected),
    OVEX_ERRC(not_enough_memory),
    OVEX_ERRC(not_supported),
    OVEX_ERRC(operation_canceled),
    OVEX_ERRC(operation_in_progress),
    OVEX_ERRC(operation_not_permitted),
    OVEX_ERRC(operation_not_supported),
    OVEX_ERRC(operation_would_block),
    OVEX_ERRC(owner_dead),
    OVEX_ERRC(permission_denied),
    OVEX_ERRC(protocol_error),
    OVEX_ERRC(protocol_not_supported),
    OVEX_ERRC(read_only_file_system),
    OVEX_ERRC(resource_deadlock_would_occur),
    OVEX_ERRC(resource_unavailable_try_again),
    OVEX_ERRC(result_out_of_range),
    OVEX_ERRC(state_not_recoverable),
    OVEX_ERRC(stream_timeout),
    OVEX_ERRC(text_file_busy),
    OVEX_ERRC(timed_out),
    OVEX_ERRC(too_many_files_open_in_system),
    OVEX_ERRC(too_many_files_open),
    OVEX_ERRC(too_many_links),
    OVEX_ERRC(too_many_symbolic_link_levels),
    OVEX_ERRC(value_too_large),
    OVEX_ERRC(wrong_protocol_type),
};

#undef OVEX_ERRC

static_assert(std::size(kErrcEntries) == 78, "std::errc has 78 enumerators");

}  // namespace

std::span<const bind::EnumEntry> ErrcEntries() noexcept {
    return kErrcEntries;
}

}  // namespace ovex::lua::core::detail
