# Writes the installed copy of one public header: the sources include each other
# from the src/ root ("core/LmrImage.h"), the installed tree names the same files
# under <qorimg/...>, so that -I<prefix>/include alone finds all of them.
# Called as: cmake -DIN=<source header> -DOUT=<copy> -DPUBLIC=<a;b;...> -P PublicHeader.cmake
file(READ "${IN}" text)
foreach(header IN LISTS PUBLIC)
  string(REPLACE "#include \"${header}\"" "#include <qorimg/${header}>" text "${text}")
endforeach()
file(WRITE "${OUT}.tmp" "${text}")
file(COPY_FILE "${OUT}.tmp" "${OUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUT}.tmp")
