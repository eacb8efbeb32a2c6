# Restores and publishes the applications of the corpus:
#
#   cmake -D DOTNET=... -D PROJECT=... -D OUTPUT=... -D FRAMEWORK=... -P build_corpus.cmake
#
# If the packages cannot be restored, for example without a network, this succeeds and leaves the
# reason in OUTPUT/unavailable, so that the tests can skip with it. The next build tries again.
set(build ${DOTNET} msbuild -nologo -verbosity:quiet -nodeReuse:false -maxCpuCount:2 ${PROJECT}
    -p:UseSharedCompilation=false -p:CorpusOutput=${OUTPUT}/ -p:CorpusFramework=${FRAMEWORK})
file(REMOVE ${OUTPUT}/unavailable)

execute_process(COMMAND ${build} -target:Restore RESULT_VARIABLE status
                OUTPUT_VARIABLE text ERROR_VARIABLE text)
if(NOT status EQUAL 0)
  string(REGEX MATCH "error [^\n]*" reason "${text}")
  file(WRITE ${OUTPUT}/unavailable "its packages cannot be restored: ${reason}")
  message("The corpus is not built, because its packages cannot be restored: ${reason}")
  return()
endif()

execute_process(COMMAND ${build} -target:Publish RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "the corpus could not be built")
endif()
file(TOUCH ${OUTPUT}/built.stamp)
