# cmake -DPROGRAM=... -DOUTPUT=... -P CheckIcon.cmake
# "--make-icon PATH" must exit 0 and leave a 1024 x 1024 PNG at PATH.
file(REMOVE ${OUTPUT})
execute_process(COMMAND ${PROGRAM} --make-icon ${OUTPUT} RESULT_VARIABLE status ERROR_VARIABLE errors)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "exit status ${status}: ${errors}")
endif()
file(READ ${OUTPUT} header LIMIT 24 HEX)
# The PNG signature, then the IHDR chunk whose first two fields are width and height.
if(NOT header MATCHES "^89504e470d0a1a0a0000000d49484452")
    message(FATAL_ERROR "not a PNG file: ${header}")
endif()
string(SUBSTRING ${header} 32 16 size)
if(NOT size STREQUAL "0000040000000400")
    message(FATAL_ERROR "expected 1024 x 1024, got width/height bytes ${size}")
endif()
