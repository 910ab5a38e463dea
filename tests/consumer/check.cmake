# Installs the built library into a scratch prefix and builds and runs the consumer
# against it (MODE=package), or builds the consumer with the sources pulled in (MODE=subdirectory).
foreach(var SOURCE_DIR BINARY_DIR WORK_DIR MODE QT_MAJOR)
    if(NOT DEFINED ${var})
        message(FATAL_ERROR "${var} is not set")
    endif()
endforeach()

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed: ${ARGN}\n${out}\n${err}")
    endif()
    message(STATUS "${out}")
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
if(MODE STREQUAL "package")
    run(${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${WORK_DIR}/prefix)
    foreach(pattern include/backupframe/backupframe.h include/backupframe/command/commandbuilder.h
                    lib*/libbackupframe.so* lib*/cmake/backupframe/backupframeConfig.cmake
                    lib*/cmake/backupframe/backupframeConfigVersion.cmake)
        file(GLOB found ${WORK_DIR}/prefix/${pattern})
        if(NOT found)
            message(FATAL_ERROR "not installed: ${pattern}")
        endif()
    endforeach()
    run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/consumer -B ${WORK_DIR}/build
        -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix)
else()
    run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/consumer -B ${WORK_DIR}/build
        -DBACKUPFRAME_SOURCE_DIR=${SOURCE_DIR} -DBACKUPFRAME_QT_MAJOR=${QT_MAJOR})
endif()
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build -j2)
run(${WORK_DIR}/build/consumer)

# The consumer runs on the Qt the library was built against, never a mix of two.
execute_process(COMMAND ldd ${WORK_DIR}/build/consumer OUTPUT_VARIABLE linked)
if(QT_MAJOR STREQUAL "6")
    set(wrong_qt "libQt5Core")
else()
    set(wrong_qt "libQt6Core")
endif()
if(linked MATCHES "${wrong_qt}")
    message(FATAL_ERROR "the consumer links ${wrong_qt}:\n${linked}")
endif()
