# Picks the mechanism behind each platform seam: src/platform/<seam>_<mechanism>.cpp.
set(VEL_SEAM_unwind gcc)
if(APPLE)
  set(VEL_SEAM_ticks mach)
else()
  set(VEL_SEAM_ticks monotonic)
endif()
