# Fails when any C++ source differs from what clang-format makes of it (.clang-format).
# Run as: cmake -DSOURCE_DIR=... -P CheckFormat.cmake
file(GLOB_RECURSE sources
    "${SOURCE_DIR}/src/*.cpp" "${SOURCE_DIR}/src/*.h"
    "${SOURCE_DIR}/tests/*.cpp" "${SOURCE_DIR}/tests/*.h"
    "${SOURCE_DIR}/bench/*.cpp" "${SOURCE_DIR}/bench/*.h")
find_program(CLANG_FORMAT clang-format REQUIRED)
execute_process(COMMAND "${CLANG_FORMAT}" --dry-run --Werror ${sources}
                RESULT_VARIABLE result ERROR_VARIABLE report)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "Sources not formatted (make format):\n${report}")
endif()
