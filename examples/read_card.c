/* SPDX-License-Identifier: Apache-2.0 */
/* Reads a card through a reader: read_card ttyS1, or read_card USB. */
#include <ICC_COMM_VORN.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { SECONDS_FOR_A_CARD = 20, USERS_CARD = 1 };

/* Account data do not belong on screens: of the account number the end remains, of track 2, the holder's document
 * number and names nothing. */
static void print_field(char letter, const char* text, int length)
{
    if (letter == 'A' && length > 4)
        printf("  A ...%.*s\n", 4, text + length - 4);
    else if (strchr("BJKL", letter) != NULL)
        printf("  %c (%d characters)\n", letter, length);
    else
        printf("  %c %.*s\n", letter, length, text);
}

/* Each field: a letter, three decimal digits giving the characters that follow, those characters. */
static int print_record(const char* record, size_t left)
{
    while (left >= 4) {
        const char digits[4] = {record[1], record[2], record[3], '\0'};
        const int length = atoi(digits);
        if (length < 0 || (size_t)length > left - 4)
            return 1;
        print_field(record[0], record + 4, length);
        record += 4 + length;
        left -= 4 + (size_t)length;
    }
    return left == 0 ? 0 : 1;
}

int main(int argc, char** argv)
{
    static char atr[ICC_ATR_CAPACITY];
    static char record[ICC_USER_INFO_CAPACITY];
    int cardType = VORN_OPEN_EITHER; /* contact first, then contactless */
    int length = 0;                  /* of the record, its NUL counted */
    int result;

    if (argc != 2) {
        fprintf(stderr, "usage: %s PORT\n", argv[0]);
        return 2;
    }
    /* IC_PowerOn waits for a card so long and no longer; IC_GetInfo would wait for ever. */
    result = IC_PowerOn(argv[1], "", 9600, SECONDS_FOR_A_CARD, USERS_CARD, 0, atr);
    if (result != VORN_OK) {
        fprintf(stderr, "no card: IC_PowerOn returned %d\n", result);
        return 1;
    }
    /* No application named: the card's own directory says which there are. */
    result = IC_GetInfo(argv[1], "", 9600, SECONDS_FOR_A_CARD, &cardType, "", "ABCDEFGHIJKL", &length, record);
    if (result != VORN_OK) {
        fprintf(stderr, "no card data: IC_GetInfo returned %d\n", result);
        return 1;
    }
    printf("read through the %s interface:\n", cardType == VORN_INTERFACE_CONTACT ? "contact" : "contactless");
    result = print_record(record, (size_t)length - 1);
    memset(record, 0, sizeof record);
    return result;
}
