# Shared build settings for the project's own targets.

if(OVEX_SANITIZE)
    string(REPLACE "," ";" _ovex_sanitizers "${OVEX_SANITIZE}")
    set(OVEX_SANITIZER_FLAGS -fsanitize=${OVEX_SANITIZE} -fno-omit-frame-pointer)
    if("undefined" IN_LIST _ovex_sanitizers)
        list(APPEND OVEX_SANITIZER_FLAGS -fno-sanitize-recover=undefined)
    endif()
    add_compile_options(${OVEX_SANITIZER_FLAGS})
    add_link_options(-fsanitize=${OVEX_SANITIZE})
endif()

find_program(OVEX_CCACHE ccache)
if(OVEX_CCACHE)
    set(CMAKE_C_COMPILER_LAUNCHER ${OVEX_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${OVEX_CCACHE})
endif()

# Warnings are errors on our own code only, never on third-party headers.
function(ovex_target_warnings target)
    get_target_property(_type ${target} TYPE)
    if(_type STREQUAL "INTERFACE_LIBRARY")
        return()
    endif()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()

# ovex_add_test(NAME SOURCES ... LIBS ... [LABELS ...] [ENVIRONMENT ...] [TIMEOUT s])
# One GoogleTest executable whose cases ctest lists one by one.
function(ovex_add_test name)
    if(NOT OVEX_BUILD_TESTS)
        return()
    endif()
    cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LIBS;LABELS;ENVIRONMENT" ${ARGN})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 120)
    endif()
    add_executable(${name} ${T_SOURCES})
    target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gmock GTest::gtest_main)
    ovex_target_warnings(${name})
    gtest_discover_tests(${name}
        DISCOVERY_TIMEOUT 60
        PROPERTIES TIMEOUT ${T_TIMEOUT} LABELS "${T_LABELS}" ENVIRONMENT "${T_ENVIRONMENT}")
endfunction()
