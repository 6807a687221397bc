# Joins objects into one whose hidden names no program sees: cmake -DCOMPILER=… -DOBJCOPY=… -DNM=… -DJOINED=…
# -P join-objects.cmake OBJECT...

set(objects)
math(EXPR last "${CMAKE_ARGC} - 1")
set(is_object OFF)
foreach(i RANGE ${last})
    if(is_object)
        list(APPEND objects ${CMAKE_ARGV${i}})
    elseif("${CMAKE_ARGV${i}}" STREQUAL "${CMAKE_SCRIPT_MODE_FILE}")
        set(is_object ON)
    endif()
endforeach()

# Without groups of sections: the linker would drop one that a program has as well, with local names in it.
execute_process(COMMAND ${COMPILER} -r -nostdlib -Wl,--force-group-allocation -o ${JOINED} ${objects}
    COMMAND_ERROR_IS_FATAL ANY)
# Inline variables, which the compiler calls unique in the process: without their groups only weak ones may
# be in a program twice.
execute_process(COMMAND ${NM} --format=posix --defined-only ${JOINED}
    OUTPUT_VARIABLE names COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n ]+ u " unique "${names}")
list(TRANSFORM unique REPLACE " u $" "")
list(JOIN unique "\n" unique)
file(WRITE ${JOINED}.unique "${unique}\n")
execute_process(COMMAND ${OBJCOPY} --localize-hidden --weaken-symbols=${JOINED}.unique ${JOINED}
    COMMAND_ERROR_IS_FATAL ANY)
