# What every target of this project shares: language, warnings, instrumentation and the generated schemas.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release)
endif()

# No NDEBUG anywhere: misuse of a mutex must end the process in the vehicle too.
foreach(language C CXX)
    set(CMAKE_${language}_FLAGS_RELEASE "-O2 -D_FORTIFY_SOURCE=2 -fstack-protector-strong")
    set(CMAKE_${language}_FLAGS_DEBUG "-O0 -g")
    set(CMAKE_${language}_FLAGS_SANITIZE "-O1 -g -fno-omit-frame-pointer")
endforeach()
separate_arguments(sanitize UNIX_COMMAND "${ECALLUI_SANITIZE}")
add_compile_options(${sanitize})
add_link_options(${sanitize})

# Source names in logs and debug information start at the project, so two checkouts build the same bytes.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}=XirEcallUIappSrvc)
add_link_options(-Wl,-z,relro,-z,now,--as-needed)
# Most of what is generated for the messages is never called: a fifth of the service's size.
add_compile_options(-ffunction-sections -fdata-sections)
add_link_options(-Wl,--gc-sections)

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(PROTOBUF_C REQUIRED IMPORTED_TARGET libprotobuf-c)
pkg_check_modules(CJSON REQUIRED IMPORTED_TARGET libcjson)
find_program(PROTOC_C NAMES protoc-c REQUIRED)

# Warnings are errors, for the code that is written here; not for generated code.
add_library(ecallui_warnings INTERFACE)
target_compile_options(ecallui_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)

# ecallui_schemas(TARGET FILE.proto...): one C library from schemas, each named by its path from the project's root.
# Including code sees "lib_Ecall/src/ecallapp.pb-c.h".
function(ecallui_schemas target)
    set(generated)
    foreach(proto IN LISTS ARGN)
        string(REGEX REPLACE "\\.proto$" "" stem ${proto})
        set(out ${CMAKE_BINARY_DIR}/schemas/${stem}.pb-c)
        add_custom_command(
            OUTPUT ${out}.c ${out}.h
            COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/schemas
            COMMAND ${PROTOC_C} --proto_path=${CMAKE_SOURCE_DIR} --c_out=${CMAKE_BINARY_DIR}/schemas
                    ${CMAKE_SOURCE_DIR}/${proto}
            DEPENDS ${CMAKE_SOURCE_DIR}/${proto}
            VERBATIM)
        list(APPEND generated ${out}.c)
    endforeach()
    add_library(${target} STATIC ${generated})
    target_include_directories(${target} SYSTEM PUBLIC ${CMAKE_BINARY_DIR}/schemas)
    target_link_libraries(${target} PUBLIC PkgConfig::PROTOBUF_C)
endfunction()

# ecallui_unit_test(NAME SOURCES... LIBRARIES...): a GoogleTest program whose cases are ctest cases of their own.
function(ecallui_unit_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} ecallui_warnings GTest::gmock_main)
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()

# ecallui_fuzz_target(NAME SOURCES... LIBRARIES...): a libFuzzer program; its seeds lie in tests/fuzz/corpus/NAME.
function(ecallui_fuzz_target name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} ecallui_warnings)
endfunction()
