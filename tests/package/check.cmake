# Installs the library from BUILD into a prefix below SCRATCH and builds the caller's program against it: by find_package
# with each form of the library, and by a plain call of the compiler with the flags of pkg-config. Each program must read
# its settings and write its record to its log.
#
# For Windows with a TOOLCHAIN and an EMULATOR: the settings are in the emulator's registry while a program runs.
cmake_minimum_required(VERSION 3.25)

set(prefix ${SCRATCH}/prefix)
set(settings ${SCRATCH}/settings.reg)
set(log ${SCRATCH}/App.log)

function(must)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# Runs a caller's program in the folder of its log: the settings name the log without a folder.
function(run)
  set(emulator ${EMULATOR})
  if(EMULATOR)
    must(${emulator} reg.exe import settings.reg WORKING_DIRECTORY ${SCRATCH})
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} -E env VELTRIX_REGISTRY=${settings} VELTRIX_RUNTIME=${SCRATCH}
    ${emulator} ${ARGN} WORKING_DIRECTORY ${SCRATCH} RESULT_VARIABLE code)
  if(EMULATOR)
    must(${emulator} reg.exe delete "HKLM\\SOFTWARE\\Orvane Electronics Limited" /f)
  endif()
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "The caller ended with ${code}: ${ARGN}")
  endif()
endfunction()

function(expect_record text)
  execute_process(COMMAND iconv -f UTF-16LE -t UTF-8 ${log} OUTPUT_VARIABLE content COMMAND_ERROR_IS_FATAL ANY)
  foreach(part "Log opened" " | INFO |       Caller | ${text}\n" "Log closing")
    string(FIND "${content}" "${part}" place)
    if(place EQUAL -1)
      message(FATAL_ERROR "The log has no \"${part}\":\n${content}")
    endif()
  endforeach()
  file(REMOVE ${log})
endfunction()

file(REMOVE_RECURSE ${SCRATCH})
file(MAKE_DIRECTORY ${SCRATCH})
set(tree "HKEY_LOCAL_MACHINE\\SOFTWARE\\Orvane Electronics Limited\\Veltrix\\4.09.00-en")
file(WRITE ${settings} "Windows Registry Editor Version 5.00\n\n"
  "[${tree}\\UDP]\n" "\"PortNumber\"=dword:00001267\n\n"
  "[${tree}\\Log\\Application]\n" "\"FilePath\"=\"App.log\"\n")

must(${CMAKE_COMMAND} --install ${BUILD} --config ${CONFIGURATION} --prefix ${prefix})

set(build -S ${CMAKE_CURRENT_LIST_DIR} -B ${SCRATCH}/caller -G Ninja
  -D CMAKE_PREFIX_PATH=${prefix} -D CMAKE_BUILD_TYPE=${CONFIGURATION})
if(TOOLCHAIN)
  list(APPEND build -D CMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -D CMAKE_STAGING_PREFIX=${prefix})
else()
  list(APPEND build -D CMAKE_CXX_COMPILER=${COMPILER})
endif()
must(${CMAKE_COMMAND} ${build} -D "CMAKE_CXX_FLAGS=${FLAGS}")
must(${CMAKE_COMMAND} --build ${SCRATCH}/caller)
set(callers caller_tessmarU caller_tessmarU_static)
if(EMULATOR)
  set(callers caller_tessmarU.exe)
endif()
foreach(caller ${callers})
  run(${SCRATCH}/caller/${caller})
  expect_record("Caller listens at port 4711")
endforeach()
if(EMULATOR)
  return()
endif()

file(GLOB_RECURSE description ${prefix}/tessmarU.pc)
cmake_path(GET description PARENT_PATH descriptionDir)
execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${descriptionDir} pkg-config --cflags --libs tessmarU
  OUTPUT_VARIABLE usage COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(usage UNIX_COMMAND "${usage}")
separate_arguments(FLAGS UNIX_COMMAND "${FLAGS}")
must(${COMPILER} ${FLAGS} -std=c++20 ${CMAKE_CURRENT_LIST_DIR}/main.cpp -o ${SCRATCH}/caller_pkgconfig ${usage})
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${descriptionDir}/.. ${SCRATCH}/caller_pkgconfig)
expect_record("port 4711")
