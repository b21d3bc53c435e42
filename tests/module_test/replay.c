/* SPDX-License-Identifier: MIT
 *
 * Inputs of a fuzz target, once more, without libFuzzer. usage: replay FILE... */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv)
{
    static uint8_t data[4096];
    int count = 0;
    for (int i = 1; i < argc; i++) {
        FILE *file = fopen(argv[i], "rb");
        if (file == NULL) return 2;
        LLVMFuzzerTestOneInput(data, fread(data, 1, sizeof data, file));
        fclose(file);
        count++;
    }
    printf("%d inputs\n", count);
    return count < 5;
}
