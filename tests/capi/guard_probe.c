/* One launch of a program: runs the commands of its arguments and prints what the crash guard
 * answers. */

#include <TQAudioRecord/tq_capture.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void printState(void) {
    struct tq_guard_state state;
    memset(&state, 0, sizeof state);
    state.size = sizeof state;
    printf("state=%d", (int)tq_guard_get_state(&state));
    printf(" next=%d this=%d retries=%d atLoad=%d inside=%d ids=%u wanting=%u forbidding=%u\n",
           (int)state.next_launch, (int)state.this_launch, (int)state.retries_left,
           (int)state.retries_at_load, (int)state.threads_inside_at_death, (unsigned)state.ids,
           (unsigned)state.ids_wanting, (unsigned)state.ids_forbidding);
}

static void printHooks(void) {
    struct tq_capture_state state;
    memset(&state, 0, sizeof state);
    state.size = sizeof state;
    printf("hooks=%d", (int)tq_capture_get_state(&state));
    printf(" installed=%u tested=%u capturing=%u\n", (unsigned)state.hooks_installed,
           (unsigned)state.self_test_passed, (unsigned)state.is_capturing);
}

static void printFolder(size_t room) {
    char* const path = malloc(room);
    if (path != NULL) {
        const enum tq_result result = tq_guard_folder(path, room);
        printf("folder=%s\n", result == TQ_OK ? path : tq_result_text(result));
    }
    free(path);
}

int main(int count, char** arguments) {
    for (int i = 1; i < count; ++i) {
        const char* const command = arguments[i];
        if (strcmp(command, "state") == 0) {
            printState();
        } else if (strcmp(command, "hooks") == 0) {
            printHooks();
        } else if (strcmp(command, "arm") == 0 && i + 1 < count) {
            printf("arm=%d\n", (int)tq_guard_arm((uint32_t)strtoul(arguments[++i], NULL, 10)));
        } else if (strcmp(command, "disarm") == 0) {
            printf("disarm=%d\n", (int)tq_guard_disarm());
        } else if (strcmp(command, "folder") == 0 && i + 1 < count) {
            printFolder(strtoul(arguments[++i], NULL, 10));
        } else {
            return 2;
        }
    }
    return 0;
}
