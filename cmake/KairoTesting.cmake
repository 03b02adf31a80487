# One test executable per unit: kairo_add_test(Name Name.cpp [GUI] [LIBS lib...] [RUN_SERIAL]).
# GUI tests get a QApplication on the offscreen platform; the others a QCoreApplication.
function(kairo_add_test name)
    cmake_parse_arguments(T "GUI;RUN_SERIAL" "TIMEOUT" "LIBS" ${ARGN})
    add_executable(${name} ${T_UNPARSED_ARGUMENTS})
    if(T_GUI)
        target_link_libraries(${name} PRIVATE kairo_testsupport_gui)
    else()
        target_link_libraries(${name} PRIVATE kairo_testsupport_main)
    endif()
    target_link_libraries(${name} PRIVATE kairo_testsupport ${T_LIBS})
    add_test(NAME ${name} COMMAND ${name})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 300)
    endif()
    set_tests_properties(${name} PROPERTIES
        TIMEOUT ${T_TIMEOUT}
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;KAIRO_BUILD_DIR=${CMAKE_BINARY_DIR};KAIRO_SOURCE_DIR=${CMAKE_SOURCE_DIR};KAIRO_TEST_DATA=${CMAKE_SOURCE_DIR}/tests/data")
    if(T_RUN_SERIAL)
        set_tests_properties(${name} PROPERTIES RUN_SERIAL TRUE)
    endif()
endfunction()
