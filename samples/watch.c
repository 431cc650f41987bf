/* Prints a line whenever AmporaSrv has written data files, until it is ended: watch [FOLDER]
 *
 * A pass writes its files one after the other, and while one is read it cannot be written. So this waits until nothing
 * has changed for a second, which is the moment to read. */
#include <ampora.h>

#include <stdio.h>

int main(int argc, char** argv)
{
    ampora_watch* watch = NULL;
    int32_t result = ampora_watch_open(argc > 1 ? argv[1] : NULL, &watch);
    while (result == AMPORA_OK) {
        result = ampora_watch_wait(watch, -1);
        while (result == AMPORA_OK) {
            result = ampora_watch_wait(watch, 1000);
        }
        if (result == AMPORA_TIMED_OUT) {
            printf("new data\n");
            fflush(stdout);
            result = AMPORA_OK;
        }
    }
    fprintf(stderr, "%s\n", ampora_error_text(result));
    ampora_watch_free(watch);
    return 1;
}
