# The platform's log and base libraries, as Debian packages them: headers and libraries lie in an
# `android` sub-folder of the usual places.
find_path(ANDROID_INCLUDE_DIR android-base/logging.h PATH_SUFFIXES android REQUIRED)
find_library(ANDROID_LOG_LIBRARY log PATH_SUFFIXES android REQUIRED)
find_library(ANDROID_BASE_LIBRARY base PATH_SUFFIXES android REQUIRED)
get_filename_component(ANDROID_LIBRARY_DIR ${ANDROID_LOG_LIBRARY} DIRECTORY)

add_library(android_base INTERFACE)
target_include_directories(android_base SYSTEM INTERFACE ${ANDROID_INCLUDE_DIR})
# The C++ library goes first: the base library brings inline functions of it that were compiled without
# unwind tables, and on 32-bit ARM a failed allocation cannot be caught beyond those.
target_link_libraries(android_base INTERFACE stdc++ ${ANDROID_BASE_LIBRARY} ${ANDROID_LOG_LIBRARY})
target_link_options(android_base INTERFACE -Wl,-rpath,${ANDROID_LIBRARY_DIR})
