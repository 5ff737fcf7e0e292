# find_package(Vsccam) brings the target Vsccam::vsccam. The library has all that it needs with it.
include(${CMAKE_CURRENT_LIST_DIR}/VsccamTargets.cmake)
