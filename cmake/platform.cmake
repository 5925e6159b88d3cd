# Picks the mechanism behind each platform seam: src/platform/<seam>_<mechanism>.cpp.
set(VEL_SEAM_unwind gcc)
if(APPLE)
  set(VEL_SEAM_ticks mach)
else()
  set(VEL_SEAM_ticks monotonic)
endif()
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|AMD64)$")
  set(VEL_SEAM_shakernels x86)
  set(VEL_SEAM_textkernels x86)
  set(VEL_SEAM_widekernels x86)
  # The intrinsics of g++ 12 begin with values that they name undefined.
  set_source_files_properties(
    src/platform/textkernels_x86.cpp src/platform/widekernels_x86.cpp PROPERTIES
    COMPILE_OPTIONS "$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>")
else()
  set(VEL_SEAM_shakernels none)
  set(VEL_SEAM_textkernels none)
  set(VEL_SEAM_widekernels none)
endif()
