/* Details of C functions that the library relies on, although standards leave them open or C
 * libraries differ. scripts/check-musl builds this program with musl and with the machine's own C
 * library. The exit status is 0 when all hold. */
#define _GNU_SOURCE
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>

static int failures = 0;

#define HOLDS(what)                                                                                \
    do {                                                                                           \
        if (!(what)) {                                                                             \
            printf("%s:%d: does not hold: %s\n", __FILE__, __LINE__, #what);                       \
            ++failures;                                                                            \
        }                                                                                          \
    } while (0)

/* NQ_Time */
static void times(void) {
    struct tm parts = {0};
    const char* rest = strptime("2020-01-02T03:04:05.123Z", "%Y-%m-%dT%H:%M:%S", &parts);
    HOLDS(rest != NULL && strcmp(rest, ".123Z") == 0);
    HOLDS(timegm(&parts) == 1577934245);

    char text[26];
    const time_t thursday = 1577934245;
    HOLDS(gmtime_r(&thursday, &parts) != NULL);
    HOLDS(strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts) == 19);
    HOLDS(strcmp(text, "2020-01-02T03:04:05") == 0);
    HOLDS(strftime(text, 19, "%Y-%m-%dT%H:%M:%S", &parts) == 0);
    HOLDS(strcmp(asctime(gmtime(&thursday)), "Thu Jan  2 03:04:05 2020\n") == 0);
    if (sizeof(time_t) == 8) {
        const time_t beyond = (time_t)LLONG_MAX; /* its year exceeds an int */
        HOLDS(gmtime_r(&beyond, &parts) == NULL);
    }

    setenv("TZ", "XYZ-3:30", 1);
    (void)ctime(&thursday);
    HOLDS(strcmp(tzname[0], "XYZ") == 0);
}

/* NQ_Base64 writes to a stream in the caller's buffer. */
static void memoryStreams(void) {
    char buffer[9];
    memset(buffer, 'x', sizeof buffer);
    FILE* stream = fmemopen(buffer, sizeof buffer, "w");
    HOLDS(stream != NULL);
    HOLDS(fwrite("abcd", 1, 4, stream) == 4 && fwrite("efgh", 1, 4, stream) == 4);
    HOLDS(fclose(stream) == 0);
    HOLDS(memcmp(buffer, "abcdefgh", sizeof buffer) == 0); /* with its terminator */
}

/* NQ_Popen, NQ_System */
static void processes(void) {
    FILE* output = popen("echo one; exit 3", "r");
    char line[16] = "";
    HOLDS(output != NULL && fgets(line, sizeof line, output) != NULL && strcmp(line, "one\n") == 0);
    HOLDS(fgets(line, sizeof line, output) == NULL && feof(output));
    HOLDS(pclose(output) == 3 << 8);
    HOLDS(system("exit 4") == 4 << 8);
    HOLDS(strtoul(" 12 34\n", NULL, 10) == 12 && strtoul("\n", NULL, 10) == 0);
}

/* NQ_System opens a directory to check that it exists; NQ_JSON may have to read one. */
static void directories(void) {
    FILE* directory = fopen("/", "r");
    HOLDS(directory != NULL);
    char byte;
    errno = 0;
    HOLDS(fread(&byte, 1, 1, directory) == 0 && ferror(directory) && errno == EISDIR);
    fclose(directory);
}

int main(void) {
    times();
    memoryStreams();
    processes();
    directories();
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
