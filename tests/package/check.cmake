# Installs the library from BUILD into a prefix of its own below SCRATCH and builds the caller's program against
# it: by find_package with either form of the library, and by a plain call of the compiler with the flags of
# pkg-config. Each program has to find its settings and leave its record in its log.
cmake_minimum_required(VERSION 3.25)

set(prefix ${SCRATCH}/prefix)
set(settings ${SCRATCH}/settings.reg)
set(log ${SCRATCH}/App.log)
set(run ${CMAKE_COMMAND} -E env VELTRIX_REGISTRY=${settings} VELTRIX_RUNTIME=${SCRATCH})

function(must)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(expect_record text)
  execute_process(COMMAND iconv -f UTF-16LE -t UTF-8 ${log} OUTPUT_VARIABLE content COMMAND_ERROR_IS_FATAL ANY)
  foreach(part "Log opened" " | INFO |       Caller | ${text}\n" "Log closing")
    string(FIND "${content}" "${part}" place)
    if(place EQUAL -1)
      message(FATAL_ERROR "The log has no \"${part}\":\n${content}")
    endif()
  endforeach()
endfunction()

file(REMOVE_RECURSE ${SCRATCH})
file(MAKE_DIRECTORY ${SCRATCH})
set(tree "HKEY_LOCAL_MACHINE\\SOFTWARE\\Orvane Electronics Limited\\Veltrix\\4.09.00-en")
file(WRITE ${settings} "Windows Registry Editor Version 5.00\n\n"
  "[${tree}\\UDP]\n" "\"PortNumber\"=dword:00001267\n\n"
  "[${tree}\\Log\\Application]\n" "\"FilePath\"=\"${log}\"\n")

must(${CMAKE_COMMAND} --install ${BUILD} --config ${CONFIGURATION} --prefix ${prefix})

must(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${SCRATCH}/caller -G Ninja
  -D CMAKE_PREFIX_PATH=${prefix} -D CMAKE_BUILD_TYPE=${CONFIGURATION}
  -D CMAKE_CXX_COMPILER=${COMPILER} -D "CMAKE_CXX_FLAGS=${FLAGS}")
must(${CMAKE_COMMAND} --build ${SCRATCH}/caller)
foreach(form tessmarU tessmarU_static)
  must(${run} ${SCRATCH}/caller/caller_${form})
  expect_record("Caller listens at port 4711")
  file(REMOVE ${log})
endforeach()

file(GLOB_RECURSE description ${prefix}/tessmarU.pc)
cmake_path(GET description PARENT_PATH descriptionDir)
execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${descriptionDir} pkg-config --cflags --libs tessmarU
  OUTPUT_VARIABLE usage COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(usage UNIX_COMMAND "${usage}")
separate_arguments(FLAGS UNIX_COMMAND "${FLAGS}")
must(${COMPILER} ${FLAGS} -std=c++20 ${CMAKE_CURRENT_LIST_DIR}/main.cpp -o ${SCRATCH}/caller_pkgconfig ${usage})
must(${run} LD_LIBRARY_PATH=${descriptionDir}/.. ${SCRATCH}/caller_pkgconfig)
expect_record("port 4711")
