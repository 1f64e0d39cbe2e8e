# The general-purpose processors that benchmarks/ and training/ compare with: speex_peer and webrtc_peer, each where its
# package is installed.
include_guard(GLOBAL)

find_path(SPEEXDSP_INCLUDE_DIR speex/speex_preprocess.h)
find_library(SPEEXDSP_LIBRARY speexdsp)
if(SPEEXDSP_INCLUDE_DIR AND SPEEXDSP_LIBRARY)
  add_library(speex_peer INTERFACE)
  target_compile_definitions(speex_peer INTERFACE WITH_SPEEX)
  target_include_directories(speex_peer SYSTEM INTERFACE ${SPEEXDSP_INCLUDE_DIR})
  target_link_libraries(speex_peer INTERFACE ${SPEEXDSP_LIBRARY})
endif()

find_path(WEBRTC_INCLUDE_DIR webrtc/modules/audio_processing/include/audio_processing.h
  PATH_SUFFIXES webrtc_audio_processing)
find_library(WEBRTC_LIBRARY webrtc_audio_processing)
if(WEBRTC_INCLUDE_DIR AND WEBRTC_LIBRARY)
  add_library(webrtc_peer INTERFACE)
  target_compile_definitions(webrtc_peer INTERFACE WITH_WEBRTC WEBRTC_POSIX
    WEBRTC_AUDIO_PROCESSING_ONLY_BUILD)
  target_include_directories(webrtc_peer SYSTEM INTERFACE ${WEBRTC_INCLUDE_DIR})
  target_link_libraries(webrtc_peer INTERFACE ${WEBRTC_LIBRARY})
endif()
