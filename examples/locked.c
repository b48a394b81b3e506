/* Several threads, one library: every call goes through one lock. The shared format buffer is
 * inside it too, so a text is formatted and used under the same hold.
 */
#include <dt/dt.h>

#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>

static pthread_mutex_t library = PTHREAD_MUTEX_INITIALIZER;
static DTLogger *logger;

static void log_line(uint32_t level, const char *format, ...) {
    char text[200];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args); /* outside the lock: no call of the library */
    va_end(args);
    pthread_mutex_lock(&library);
    DTLogger_Write(logger, level, text);
    pthread_mutex_unlock(&library);
}

static void *work(void *name) {
    for (int i = 0; i < 100; ++i) log_line(1, "%s: step %d", (const char *)name, i);
    return NULL;
}

int main(void) {
    char first_name[] = "first", second_name[] = "second";
    pthread_t first, second;
    logger = DTLogger_New(255);
    pthread_create(&first, NULL, work, first_name);
    pthread_create(&second, NULL, work, second_name);
    pthread_join(first, NULL);
    pthread_join(second, NULL);
    const uint32_t used = logger->info->free_addr;
    printf("200 lines in %u bytes\n", (unsigned)used);
    DTLogger_Release(logger);
    return used == 0;
}
