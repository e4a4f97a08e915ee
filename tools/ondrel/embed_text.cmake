# Writes the text file IN as a C++ raw string literal into OUT.
file(READ ${IN} content)
string(FIND "${content}" ")ondrel_text\"" clash)
if(NOT clash EQUAL -1)
  message(FATAL_ERROR "${IN} contains the raw-string delimiter")
endif()
file(WRITE ${OUT} "R\"ondrel_text(${content})ondrel_text\"\n")
