# The two halves of a build by a profile, which tools/build-pgo goes through: DOVREL_PGO=generate makes an
# executable that counts what it runs, and DOVREL_PGO=use optimises by these counts. Both halves share
# one build directory, since the counts of a source file lie beside its object file.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    message(FATAL_ERROR "DOVREL_PGO is for GCC; this is ${CMAKE_CXX_COMPILER_ID}")
endif()

if(DOVREL_PGO STREQUAL "generate")
    set(profile_options -fprofile-generate)
elseif(DOVREL_PGO STREQUAL "use")
    file(GLOB_RECURSE counts ${PROJECT_BINARY_DIR}/*.gcda)
    if(NOT counts)
        message(FATAL_ERROR "There is no profile in ${PROJECT_BINARY_DIR}: tools/build-pgo makes one")
    endif()
    # What the training does not reach is optimised as in any other build, and not for size. Sources
    # may have changed since the profile was taken, or be new.
    set(profile_options
        -fprofile-use -fprofile-partial-training
        -Wno-missing-profile -Wno-error=coverage-mismatch)
else()
    message(FATAL_ERROR "DOVREL_PGO is generate, use, or empty, and not ${DOVREL_PGO}")
endif()

# The library for other programs and `dovrel` have objects of their own, and no profile.
foreach(target dovrelscript_core dovrelscript)
    target_compile_options(${target} PRIVATE ${profile_options})
endforeach()
target_link_options(dovrelscript_core INTERFACE ${profile_options})
