# Restores and publishes the applications of the corpus:
#
#   cmake -D DOTNET=... -D PROJECT=... -D OUTPUT=... -D FRAMEWORK=... -P build_corpus.cmake
#
# If the packages cannot be restored, for example without a network, this succeeds and leaves the
# reason in OUTPUT/unavailable, so that the tests can skip with it. It does not try again at every
# build, since that takes long.
set(build ${DOTNET} msbuild -nologo -verbosity:quiet -nodeReuse:false -maxCpuCount:2 ${PROJECT}
    -p:UseSharedCompilation=false -p:CorpusOutput=${OUTPUT}/ -p:CorpusFramework=${FRAMEWORK})
file(REMOVE ${OUTPUT}/unavailable)

execute_process(COMMAND ${build} -target:Restore RESULT_VARIABLE status
                OUTPUT_VARIABLE text ERROR_VARIABLE text)
if(NOT status EQUAL 0)
  string(REGEX MATCH "error [^\n]*" reason "${text}")
  string(REGEX REPLACE "https?://[^ ]*" "the package registry" reason "${reason}")
  set(reason "its packages cannot be restored (${reason}); to try again, remove ${OUTPUT}")
  file(WRITE ${OUTPUT}/unavailable "${reason}")
  file(TOUCH ${OUTPUT}/built.stamp)
  message("The applications of the compatibility test are not built: ${reason}")
  return()
endif()

execute_process(COMMAND ${build} -target:Publish RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "the corpus could not be built")
endif()
file(TOUCH ${OUTPUT}/built.stamp)
