/* SPDX-License-Identifier: Apache-2.0 */
/* Shows the transactions that a card remembers: read_log ttyS1, or read_log USB. */
#include <ICC_COMM_VORN.h>
#include <stdio.h>
#include <string.h>

enum { SECONDS_FOR_A_CARD = 20, USERS_CARD = 1 };

/* What stands in front of the merchant's name in each transaction is of one length:
 *   P012 Q012 amount  R004 currency  S006 date  T002 type  U006 time  V004 country  W and three digits
 * P is a letter and a count with nothing behind it. */
enum {
    CURRENCY = 24,
    DATE = 32,
    TYPE = 42,
    TIME = 48,
    NAME = 66,
    COUNTER_FIELD = 8 /* X004 and four characters */
};

static int is_counter(const char* text)
{
    return strncmp(text, "X004", 4) == 0 && strspn(text + 4, "0123456789ABCDEF") >= 4 &&
           (text[COUNTER_FIELD] == '\0' || strncmp(text + COUNTER_FIELD, "P012Q012", 8) == 0);
}

/* The three digits behind W count the card's bytes, the name is in UTF-8: it ends where X begins. */
static const char* end_of_name(const char* name)
{
    for (; *name != '\0'; name++)
        if (is_counter(name))
            return name;
    return NULL;
}

/* A card holds what it likes: nothing that a terminal would obey is shown. */
static void print_text(const char* text, const char* end)
{
    for (; text < end; text++)
        putchar((unsigned char)*text < ' ' || *text == 127 ? '?' : *text);
    putchar('\n');
}

static int print_log(const char* text)
{
    while (*text != '\0') {
        const char* end = strlen(text) > NAME ? end_of_name(text + NAME) : NULL;
        if (end == NULL)
            return 1;
        printf("%.2s-%.2s-%.2s %.2s:%.2s  type %.2s  currency %.4s  number %.4s  ", text + DATE, text + DATE + 2,
               text + DATE + 4, text + TIME, text + TIME + 2, text + TYPE, text + CURRENCY, end + 4);
        print_text(text + NAME, end);
        text = end + COUNTER_FIELD;
    }
    return 0;
}

int main(int argc, char** argv)
{
    static char atr[ICC_ATR_CAPACITY];
    static char text[ICC_TX_DETAIL_CAPACITY];
    int cardType = VORN_OPEN_EITHER;
    int length = 0;
    int result;

    if (argc != 2) {
        fprintf(stderr, "usage: %s PORT\n", argv[0]);
        return 2;
    }
    result = IC_PowerOn(argv[1], "", 9600, SECONDS_FOR_A_CARD, USERS_CARD, 0, atr);
    if (result != VORN_OK) {
        fprintf(stderr, "no card: IC_PowerOn returned %d\n", result);
        return 1;
    }
    result = IC_GetTranDeta(argv[1], "", 9600, SECONDS_FOR_A_CARD, &cardType, "", &length, text);
    if (result == VORN_OBJECT_MISSING) {
        printf("this card keeps no log\n");
        return 0;
    }
    if (result != VORN_OK) {
        fprintf(stderr, "no log: IC_GetTranDeta returned %d\n", result);
        return 1;
    }
    return print_log(text);
}
