/* SPDX-License-Identifier: Apache-2.0 */
/* How much memory a plain host has in use before its first call and after it: bench_one_call PORT. The port may be one
 * that is not there; a reader shows the whole of a call. */
#include <ICC_COMM_VORN.h>
#include <stdio.h>

static long resident(void)
{
    char line[256];
    long kilobytes = -1;
    FILE* file = fopen("/proc/self/smaps_rollup", "r");
    while (file != NULL && kilobytes < 0 && fgets(line, sizeof line, file) != NULL) {
        sscanf(line, "Rss: %ld", &kilobytes);
    }
    if (file != NULL) {
        fclose(file);
    }
    return kilobytes;
}

int main(int argc, char** argv)
{
    static char record[ICC_USER_INFO_CAPACITY];
    int cardType = VORN_OPEN_EITHER;
    int length = 0;
    const long before = resident();
    const int result = IC_GetInfo(argc > 1 ? argv[1] : "", "", 9600, 5, &cardType, "", "ABCDEFGHIJKL", &length, record);
    const long after = resident();
    printf("{\"name\": \"memory/one call\", \"ratio\": %.6f, \"before_kB\": %ld, \"after_kB\": %ld}\n",
           (double)after / (double)before, before, after);
    return result == VORN_OK ? 0 : 1;
}
