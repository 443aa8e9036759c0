/* Builds against the installed platform headers and host library, and finds the plug-in and modules. */
#include <stdio.h>
#include <unistd.h>

#include <yfw_types.h>

int main(void)
{
    if (access(OCNI_PLUGIN, R_OK) != 0 || access(OCNI_YANG_DIR, R_OK) != 0) {
        fprintf(stderr, "consumer: %s or %s missing\n", OCNI_PLUGIN, OCNI_YANG_DIR);
        return 1;
    }
    printf("ocni found: %s\n", OCNI_PLUGIN);
    return 0;
}
