#!/bin/sh
# load_images.sh COMPILER FOLDER COUNT: shared objects image1.so to imageCOUNT.so, each with a slot for
# a function that is redirected and for some that are not.
set -e
mkdir -p "$2"
source=$2/image.c
cat >"$source" <<'C'
#include <stdlib.h>
#include <string.h>
#include <stdio.h>
extern int AudioOutputUnitStart(void* unit);
int play(void* unit, const char* text) {
    char* copy = strdup(text);
    int length = copy == NULL ? 0 : printf("%s", copy);
    free(copy);
    return AudioOutputUnitStart(unit) + length;
}
C
"$1" -O1 -fPIC -c "$source" -o "$2/image.o"
number=1
while [ "$number" -le "$3" ]; do
    "$1" -shared "$2/image.o" -Wl,-soname,"image$number.so" -o "$2/image$number.so"
    number=$((number + 1))
done
