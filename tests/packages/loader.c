/* SPDX-License-Identifier: Apache-2.0 */
/* A host that knows nothing of the library but its file name and one function: no header, no linking. */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

typedef int GetInfo(char*, char*, int, int, int*, char*, char*, int*, char*);

int main(int argc, char** argv)
{
    static const char beginning[] = "A0196229990000710246589"; /* of the profile "debit" */
    static char record[8192];
    char none[1] = "", tags[] = "A";
    int cardType = 3, length = 0, result;
    GetInfo* getInfo;
    void* library = dlopen("ICC_COMM_VORN.so", RTLD_NOW);
    if (library == NULL || argc < 2) {
        printf("%s\n", library == NULL ? dlerror() : "usage: loader PORT");
        return 1;
    }
    getInfo = (GetInfo*)dlsym(library, "IC_GetInfo");
    result = getInfo(argv[1], none, 9600, 30, &cardType, none, tags, &length, record);
    if (result != 0 || strncmp(record, beginning, strlen(beginning)) != 0) {
        printf("result %d, record %s\n", result, record);
        return 1;
    }
    return dlclose(library);
}
