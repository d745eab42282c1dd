# Boost's headers, for the cross compiler.
include(${CMAKE_CURRENT_LIST_DIR}/ArchitectureIndependent.cmake)
header_package(Boost boost Boost::headers boost/ptr_container/ptr_vector.hpp)
