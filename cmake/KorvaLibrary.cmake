# korva_add_library(<target> SIMD <OFF|AVX2|AVX512>): the library, with vector copies of its kernels up to a level; ON
# stands for all. It is shared unless BUILD_SHARED_LIBS is set to OFF.
function(korva_add_library target)
  cmake_parse_arguments(library "" "SIMD" "" ${ARGN})

  add_library(${target} ${korva_library_type}
    src/ref_utilities.cpp
    src/ref_cube_generation.cpp
    src/ref_reflectance_calculation.cpp
    src/ref_spectral_correction.cpp
    src/ref_demosaicing.cpp
    src/ref_median_filtering.cpp
    src/ref_image_operations.cpp
    src/ref_rgbx_demosaicing.cpp
    src/ref_rgbx_new_wli.cpp)

  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(${target} PRIVATE cxx_std_20)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    # A static library goes into hosts' shared libraries too.
    POSITION_INDEPENDENT_CODE ON
    OUTPUT_NAME korva_reference_api
    # The file, its SONAME and the name a host records are one: libkorva_reference_api.so.1.0
    VERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
    LINK_DEPENDS ${PROJECT_SOURCE_DIR}/src/korva_reference_api.map)

  # These stand after the user's flags. The first three keep the bits (clang's -Ofast would take subnormals for zeros);
  # without link-time optimisation the library is machine code before a host's link, whose flags so cannot change it.
  target_compile_options(${target} PRIVATE
    -ffp-contract=off -fno-fast-math $<$<CXX_COMPILER_ID:Clang>:-fdenormal-fp-math=ieee> -fno-lto
    # Lets loops with comparisons become selects: results stay, only the exception flags may differ.
    -fno-trapping-math
    -fno-exceptions -fno-rtti
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    # Vectors never cross a call that is not inlined.
    -Wno-psabi)

  # Whatever the build type: without optimisation, as in Debug and where a host names no type, kernels take 30 times as
  # long, and medians take 6 times as long with g++ 12 at -O2.
  if(KORVA_OPTIMIZE)
    target_compile_options(${target} PRIVATE -O3)
  endif()

  target_compile_definitions(${target} PRIVATE KORVA_FP_CONTRACT_OFF)
  if(NOT library_SIMD)
    set(level 0)
  elseif(library_SIMD STREQUAL AVX2)
    set(level 1)
  elseif(library_SIMD MATCHES "^(AVX512|ON|TRUE|YES|Y|1)$")
    set(level 2)
  else()
    message(FATAL_ERROR "KORVA_SIMD is OFF, AVX2 or AVX512, not ${library_SIMD}")
  endif()
  target_compile_definitions(${target} PRIVATE KORVA_SIMD_LEVEL=${level})

  if(korva_library_type STREQUAL SHARED)
    # Fast-math at link time alone would add start-up code that changes the host's floating-point mode, and there -Ofast
    # counts as such unless another level follows.
    target_link_options(${target} PRIVATE
      -fno-fast-math -fno-unsafe-math-optimizations -O2
      -Wl,--version-script=${PROJECT_SOURCE_DIR}/src/korva_reference_api.map
      # -Bsymbolic: the calls of one routine to another stay inside, whatever a host defines under the same names.
      -Wl,-Bsymbolic -Wl,--as-needed -Wl,-z,defs)
  endif()
endfunction()
