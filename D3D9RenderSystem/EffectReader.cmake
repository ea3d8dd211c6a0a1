# The compiled effect reader: portable, without Windows, Direct3D or D3DX, so it
# builds on both Windows targets and natively (sanitizers, fuzzer).
add_library(effectreader STATIC
  ${CMAKE_CURRENT_LIST_DIR}/D3D9ParseEffect.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ParsedEffect.cpp
  ${CMAKE_CURRENT_LIST_DIR}/EffectHeap.cpp
  ${CMAKE_CURRENT_LIST_DIR}/EffectLog.cpp)
target_include_directories(effectreader PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(effectreader PUBLIC base)
if(KV_FUZZ)
  # Coverage for the fuzzer, and the sanitizers where the bytes are read.
  target_compile_options(effectreader PRIVATE -fsanitize=fuzzer-no-link,address,undefined
                         -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
endif()

# The bridge from the reader's log sink to the engine's log, for the plug-in:
# link effectreader_enginelog and call ConnectEffectLogToEngine() once.
if(WIN32)
  add_library(effectreader_enginelog STATIC ${CMAKE_CURRENT_LIST_DIR}/EffectEngineLog.cpp)
  target_link_libraries(effectreader_enginelog PUBLIC effectreader $<TARGET_NAME_IF_EXISTS:korvoengine>)
endif()
