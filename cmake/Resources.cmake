# tessmaru_add_resources(<target> <script.rc>): compiles a resource script and adds it to the target, so that the library
# finds its string table, message table and version block there. The target is a program, a library or a module. Files
# that the script includes are searched in its folder; if one changes, the script is compiled again.
#
# On Windows the toolchain does it. Elsewhere the compiled file (.res) becomes the section `.rsrc` of the ELF file, with a
# note that contains the place of the section in memory.

# The note's descriptor contains the distance from itself to the data, and the size of the data, both in 32 bits. Nothing
# refers to either section, so both are marked to be kept.
set(_tessmaru_resource_stub [=[
// Generated: the compiled resources of a module, and the note by which they are found in memory.
asm(R"(
    .pushsection .rsrc, "aR", %progbits
    .balign 4
    .globl @symbol@
    .hidden @symbol@
    .type @symbol@, %object
@symbol@:
    .incbin "@compiled@"
.Lveltrix_resources_end:
    .size @symbol@, .Lveltrix_resources_end - @symbol@
    .popsection

    .pushsection .note.veltrix, "aR", %note
    .balign 4
    .long 8
    .long 8
    .long 1
    .asciz "Veltrix"
.Lveltrix_resources_note:
    .long @symbol@ - .Lveltrix_resources_note
    .long .Lveltrix_resources_end - @symbol@
    .popsection
)");
]=])

function(tessmaru_add_resources target script)
    get_filename_component(script "${script}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_SOURCE_DIR}")
    if(WIN32)
        target_sources(${target} PRIVATE "${script}")
        return()
    endif()

    find_program(TESSMARU_WINDRES
        NAMES x86_64-w64-mingw32-windres i686-w64-mingw32-windres windres llvm-windres
        DOC "Compiler for resource scripts")
    if(NOT TESSMARU_WINDRES)
        message(FATAL_ERROR "No windres found to compile ${script}; set TESSMARU_WINDRES.")
    endif()

    get_filename_component(name "${script}" NAME_WE)
    get_filename_component(folder "${script}" DIRECTORY)
    set(compiled "${CMAKE_CURRENT_BINARY_DIR}/${target}_resources/${name}.res")
    set(stub "${CMAKE_CURRENT_BINARY_DIR}/${target}_resources/${name}.cpp")
    file(MAKE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/${target}_resources")
    add_custom_command(OUTPUT "${compiled}"
        COMMAND "${TESSMARU_WINDRES}"
            --preprocessor "${CMAKE_CXX_COMPILER}"
            --preprocessor-arg=-E --preprocessor-arg=-xc --preprocessor-arg=-DRC_INVOKED
            --preprocessor-arg=-MMD --preprocessor-arg=-MF "--preprocessor-arg=${compiled}.d"
            --preprocessor-arg=-MT "--preprocessor-arg=${compiled}"
            --include-dir "${folder}" -O res -o "${compiled}" "${script}"
        DEPENDS "${script}"
        DEPFILE "${compiled}.d"
        COMMENT "Compiling resources ${name}.rc"
        VERBATIM)

    # The resources of a static library are linked if something refers to this symbol.
    string(MAKE_C_IDENTIFIER "${target}_resources" symbol)
    file(CONFIGURE OUTPUT "${stub}" CONTENT "${_tessmaru_resource_stub}" @ONLY)
    set_source_files_properties("${stub}" PROPERTIES OBJECT_DEPENDS "${compiled}" SKIP_PRECOMPILE_HEADERS ON)
    target_sources(${target} PRIVATE "${stub}")
endfunction()
