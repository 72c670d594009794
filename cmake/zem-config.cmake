# find_package(zem) gives the target zem::zem.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
find_dependency(Boost 1.81 COMPONENTS json)
find_dependency(fmt 9)
include(${CMAKE_CURRENT_LIST_DIR}/zem-targets.cmake)
