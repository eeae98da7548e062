/* SPDX-License-Identifier: Apache-2.0 */
/* An online transaction: sale PORT CENTS ISSUER, for example
 *     sale pts/3 1234 "vorn issuer debit"
 * ISSUER stands in for the bank's host: a command that gets the ARQC text as its last argument and prints the answer.
 * A counter sends the text, in which the account number is in clear, over its own protected line. */
#include <ICC_COMM_VORN.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>
#include <time.h>

enum { SECONDS_FOR_A_CARD = 20, USERS_CARD = 1, ISSUER_NAME_MAX = 500, ANSWER_CAPACITY = 4096 };

/* Letter, three digits giving the characters that follow, those characters. Both calls get the same text. */
static int describe_transaction(char* text, size_t capacity, unsigned long long cents)
{
    unsigned char number[4];
    const time_t now = time(NULL);
    struct tm local;

    if (getrandom(number, sizeof number, 0) != (ssize_t)sizeof number || localtime_r(&now, &local) == NULL)
        return -1;
    /* Amount, date, time, unpredictable number, and the merchant's name: "EXAMPLE MERCHANT" in 20 bytes. */
    return snprintf(text, capacity,
                    "P012%012lluS006%02d%02d%02dU006%02d%02d%02dK008%02X%02X%02X%02X"
                    "V0404558414D504C45204D45524348414E5420202020",
                    cents, local.tm_year % 100, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                    local.tm_sec, number[0], number[1], number[2], number[3]);
}

/* 0, or -1 when no answer came. */
static int ask_issuer(const char* issuer, const char* arqc, char* answer)
{
    static char command[ISSUER_NAME_MAX + ICC_CRYPTOGRAM_CAPACITY];
    FILE* pipe;
    char* line;

    snprintf(command, sizeof command, "%.499s %s", issuer, arqc);
    pipe = popen(command, "r");
    if (pipe == NULL)
        return -1;
    line = fgets(answer, ANSWER_CAPACITY, pipe);
    if (pclose(pipe) != 0 || line == NULL)
        return -1;
    answer[strcspn(answer, "\n")] = '\0';
    return 0;
}

/* 91 0A, eight bytes of cryptogram, two characters of response code: "00" is an approval. */
static int issuer_approves(const char* answer)
{
    return strlen(answer) >= 24 && strncmp(answer, "910A", 4) == 0 && strncmp(answer + 20, "3030", 4) == 0;
}

static int complete(const char* port, const char* transaction, const char* answer, const char* state)
{
    static char tc[ICC_CRYPTOGRAM_CAPACITY];
    static char script[ICC_SCRIPT_RESULT_CAPACITY];
    int cardType = 0;
    int length = 0;
    const int result = IC_CtlScriptData(port, "", 9600, SECONDS_FOR_A_CARD, &cardType, transaction, answer, &length, tc,
                                        script, state);

    if (!issuer_approves(answer)) {
        printf("not approved by the issuer\n");
        return 1;
    }
    /* A TC is the card's approval, also when a command of the issuer's script failed behind it. */
    if ((result == VORN_OK || result == VORN_SCRIPT_FAILED) && tc[0] != '\0') {
        printf("approved%s%s\n", script[0] != '\0' ? ", script result " : "", script);
        return 0;
    }
    /* The issuer has booked it, and there is no TC: refused, or done and the answer lost. Either way it is taken back. */
    printf("not completed (%d): send the issuer a reversal\n", result);
    return 1;
}

static int sell(const char* port, unsigned long long cents, const char* issuer)
{
    static char atr[ICC_ATR_CAPACITY], arqc[ICC_CRYPTOGRAM_CAPACITY], state[ICC_STATE_CAPACITY];
    static char answer[ANSWER_CAPACITY];
    char transaction[256];
    int cardType = VORN_OPEN_EITHER;
    int length = 0;
    int result;

    if (describe_transaction(transaction, sizeof transaction, cents) < 0)
        return 1;
    result = IC_PowerOn(port, "", 9600, SECONDS_FOR_A_CARD, USERS_CARD, 0, atr);
    if (result == VORN_OK)
        result = IC_GenARQC(port, "", 9600, SECONDS_FOR_A_CARD, &cardType, "", transaction, &length, arqc, state);
    if (result != VORN_OK) {
        fprintf(stderr, "no request from the card: %d\n", result);
        return 1;
    }
    /* From here to the second call the card stays powered, and no other card call comes between. */
    if (ask_issuer(issuer, arqc, answer) != 0) {
        printf("no answer from the issuer: send it a reversal\n");
        return 1;
    }
    return complete(port, transaction, answer, state);
}

int main(int argc, char** argv)
{
    char* end = NULL;
    const unsigned long long cents = argc == 4 ? strtoull(argv[2], &end, 10) : 0;
    int result;

    if (argc != 4 || *end != '\0' || cents == 0 || cents > 999999999999ULL) {
        fprintf(stderr, "usage: %s PORT CENTS ISSUER\n", argv[0]);
        return 2;
    }
    result = sell(argv[1], cents, argv[3]);
    IC_PowerOff(argv[1], "", 9600, 0, USERS_CARD, 0); /* the second call leaves the card powered without a script */
    return result;
}
