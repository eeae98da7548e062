/* SPDX-License-Identifier: Apache-2.0 */
/* A small counter application, for examples/ci/run to try: counter PORT SECONDS
 * It reads the customer's card and tells the teller how that went. Each way out has an exit code of its own. */
#include <ICC_COMM_VORN.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { USERS_CARD = 1, LONGEST_CALL = 60 };
enum { DONE = 0, USAGE = 2, NO_CARD = 3, NO_READER = 4, NOT_READ = 5 };

struct ending {
    int result;
    int code;
    const char* message;
};

/* What the teller can do about a result; all others mean that the card could not be read. */
static const struct ending endings[] = {
    {VORN_OPEN_FAILED, NO_READER, "The reader is not connected."},
    {VORN_NO_REPLY, NO_READER, "The reader does not answer. Check its cable and power."},
    {VORN_NO_CARD_IN_TIME, NO_CARD, "No card. Please insert it."},
    {VORN_READER_NO_CARD, NO_CARD, "The card was taken out too early."},
    {VORN_POWER_ON_REFUSED, NOT_READ, "The card does not answer. Is it the right way round?"},
};

static int tell(int result)
{
    size_t i;
    for (i = 0; i < sizeof endings / sizeof *endings; i++)
        if (endings[i].result == result) {
            printf("%s\n", endings[i].message);
            return endings[i].code;
        }
    printf("The card could not be read. Please try again.\n");
    return NOT_READ;
}

/* Field A, the account number, comes first. No more than its end is shown. */
static int show(const char* record)
{
    char digits[4] = "";
    int length;
    memcpy(digits, record + 1, 3);
    length = atoi(digits);
    if (record[0] != 'A' || length < 4)
        return tell(VORN_OBJECT_MISSING);
    printf("Card ending in %.4s\n", record + 4 + length - 4);
    return DONE;
}

static int serve(const char* port, int seconds)
{
    static char atr[ICC_ATR_CAPACITY];
    static char record[ICC_USER_INFO_CAPACITY];
    int cardType = VORN_OPEN_EITHER, length = 0, code;
    int result = IC_PowerOn(port, "", 9600, seconds, USERS_CARD, 0, atr);
    if (result == VORN_OK)
        result = IC_GetInfo(port, "", 9600, seconds, &cardType, "", "ABCDEFGHIJKL", &length, record);
    if (result != VORN_OK)
        return tell(result);
    code = show(record);
    memset(record, 0, sizeof record);
    return code;
}

int main(int argc, char** argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: %s PORT SECONDS\n", argv[0]);
        return USAGE;
    }
    /* A card that is taken out between the two calls leaves IC_GetInfo waiting for the next one: SIGALRM ends this
     * process then, and whoever started it goes on. */
    alarm(LONGEST_CALL);
    return serve(argv[1], atoi(argv[2]));
}
