# Profile-guided optimisation of the optimised builds with GCC.
#
# The program spends its time in loops whose branches go mostly one way
# (plain text against markers, ASCII against other characters); the
# compiler lays them out far better once it has seen a real run. So the
# code is first built a second time, instrumented, in a build tree of its
# own (profile-build/); that binary fills a generated payroll register and
# the examples; and the program and its library are then compiled with the
# counts it left. The instrumented tree and the run are redone whenever a
# source changes, and every object of the program is then compiled again.
#
# On for Release builds (what `make bench` and an installing user build),
# off otherwise, since it more than doubles the build time for about a
# tenth of the run time; -DFORMFILL_PGO=ON or OFF decides either way. Never
# where it cannot work: other compilers, the sanitizer and fuzzing builds,
# unoptimised builds, no Python to generate the training table.

if(CMAKE_BUILD_TYPE STREQUAL "Release")
  set(formfill_pgo_default ON)
else()
  set(formfill_pgo_default OFF)
endif()
option(FORMFILL_PGO "Optimise with a profile of a training run (GCC)"
       ${formfill_pgo_default})

function(formfill_enable_pgo)
  if(NOT FORMFILL_PGO OR FORMFILL_SANITIZE OR FORMFILL_FUZZ OR
     NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU" OR
     NOT CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo)$")
    return()
  endif()
  find_package(Python3 COMPONENTS Interpreter QUIET)
  if(NOT Python3_Interpreter_FOUND)
    message(STATUS "formfill: no Python 3 for the training table; no profile-guided optimisation")
    return()
  endif()
  include(CheckCXXCompilerFlag)
  set(CMAKE_REQUIRED_LINK_OPTIONS -fprofile-generate)
  check_cxx_compiler_flag("-fprofile-prefix-path=${CMAKE_BINARY_DIR}" formfill_has_prefix_path)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  if(NOT formfill_has_prefix_path)
    message(STATUS "formfill: the compiler lacks -fprofile-prefix-path; no profile-guided optimisation")
    return()
  endif()

  include(ExternalProject)
  string(TOUPPER "${CMAKE_BUILD_TYPE}" config)
  set(train_tree "${CMAKE_BINARY_DIR}/profile-build")
  set(profiles "${CMAKE_BINARY_DIR}/profile-data")
  set(stamp "${CMAKE_BINARY_DIR}/profile-data.stamp")
  set(train_bin "${train_tree}/formfill")

  # The same sources and flags as this build, instrumented. Object names
  # in the profiles are taken relative to each tree, so that this build
  # finds the counts of its own objects.
  ExternalProject_Add(formfill_instrumented
    SOURCE_DIR "${PROJECT_SOURCE_DIR}"
    BINARY_DIR "${train_tree}"
    CMAKE_ARGS
      -DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE}
      -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
      "-DCMAKE_CXX_FLAGS=${CMAKE_CXX_FLAGS} -fprofile-generate=${profiles} -fprofile-update=single -fprofile-prefix-path=${train_tree}"
      "-DCMAKE_CXX_FLAGS_${config}=${CMAKE_CXX_FLAGS_${config}}"
      -DFORMFILL_TESTS=OFF
      -DFORMFILL_PGO=OFF
    BUILD_BYPRODUCTS "${train_bin}"
    INSTALL_COMMAND ""
    BUILD_ALWAYS ON
  )

  add_custom_command(
    OUTPUT "${stamp}"
    COMMAND ${CMAKE_COMMAND}
      "-DFORMFILL=${train_bin}"
      "-DPROFILES=${profiles}"
      "-DSOURCE=${PROJECT_SOURCE_DIR}"
      "-DWORK=${CMAKE_BINARY_DIR}/profile-run"
      "-DPYTHON=${Python3_EXECUTABLE}"
      "-DSTAMP=${stamp}"
      -P "${PROJECT_SOURCE_DIR}/cmake/TrainProfile.cmake"
    DEPENDS "${train_bin}"
      "${PROJECT_SOURCE_DIR}/cmake/TrainProfile.cmake"
      "${PROJECT_SOURCE_DIR}/bench/gen_payroll.py"
    COMMENT "Training run of the instrumented formfill"
    VERBATIM
  )
  add_custom_target(formfill_profile DEPENDS "${stamp}")
  add_dependencies(formfill_profile formfill_instrumented)

  set(use_flags
    "-fprofile-use=${profiles}"
    "-fprofile-partial-training"
    "-fprofile-prefix-path=${CMAKE_BINARY_DIR}")
  # With the sizes of the copies known from the run, GCC's generic x86
  # tuning copies a field value of a few dozen characters with "rep movs",
  # which starts far slower on current processors than the library's
  # memcpy; copies stay calls.
  check_cxx_compiler_flag("-mmemcpy-strategy=libcall:-1:noalign" formfill_has_memcpy_strategy)
  if(formfill_has_memcpy_strategy)
    list(APPEND use_flags "-mmemcpy-strategy=libcall:-1:noalign")
  endif()
  foreach(t formfill_core formfill)
    add_dependencies(${t} formfill_profile)
    target_compile_options(${t} PRIVATE ${use_flags})
    get_target_property(sources ${t} SOURCES)
    set_property(SOURCE ${sources} APPEND PROPERTY OBJECT_DEPENDS "${stamp}")
  endforeach()
  message(STATUS "formfill: profile-guided optimisation on")
endfunction()
