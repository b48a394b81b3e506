#include "foundation/DTTime.h"

#include "base/text.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

struct Token {
    char text[5];
    uint8_t length;
    uint8_t digits;
    bool two_digits; // of the value only the last two
    int16_t offset;
    int tm::*value;
};

// In order of precedence.
constexpr Token tokens[] = {
    {"YYYY", 4, 4, false, 1900, &tm::tm_year}, {"YY", 2, 2, true, 0, &tm::tm_year},
    {"yy", 2, 1, true, 0, &tm::tm_year},       {"MM", 2, 2, false, 1, &tm::tm_mon},
    {"mm", 2, 1, false, 1, &tm::tm_mon},       {"DD", 2, 2, false, 0, &tm::tm_mday},
    {"dd", 2, 1, false, 0, &tm::tm_mday},      {"HH", 2, 2, false, 0, &tm::tm_hour},
    {"hh", 2, 1, false, 0, &tm::tm_hour},      {"MI", 2, 2, false, 0, &tm::tm_min},
    {"mi", 2, 1, false, 0, &tm::tm_min},       {"SS", 2, 2, false, 0, &tm::tm_sec},
    {"ss", 2, 1, false, 0, &tm::tm_sec},
};

const Token *token_at(const char *format) {
    for (const Token &token : tokens)
        if (*format == *token.text && strncmp(format, token.text, token.length) == 0) return &token;
    return nullptr;
}

// Those of a year before 1900 have no sign either.
int last_two_digits(int value) { return (value % 100 + 100) % 100; }

char *put_token(char *out, const Token &token, const tm &local) {
    const int value = local.*token.value;
    const int64_t shown = token.two_digits ? last_two_digits(value) : int64_t{value} + token.offset;
    return dt::put_number(out, shown, token.digits);
}

void write(char *to, const char *format, const tm &local) {
    while (*format) {
        if (const Token *token = token_at(format)) {
            to = put_token(to, *token, local);
            format += token->length;
        } else {
            *to++ = *format++;
        }
    }
    *to = '\0';
}

// A text is kept for the second in which it was made, so that the system's zone, when it is
// replaced, shows in the next: logs write many lines within one, and localtime costs more than the
// lines.
struct Kept {
    time_t made;
    time_t shown;
    char format[24];
    char text[24];

    bool serves(time_t now, time_t time, const char *pattern) const {
        return made == now && shown == time && strcmp(format, pattern) == 0;
    }
};

Kept sg_kept[2]; // logs use two patterns in turns
uint8_t sg_oldest;

// TZ as it was when they were made.
struct {
    bool is_set;
    bool is_cut;
    char text[47];
} sg_zone;

// As getenv, which takes several times as long.
const char *zone_text() {
    for (char **entry = environ; entry && *entry; ++entry)
        if (**entry == 'T' && (*entry)[1] == 'Z' && (*entry)[2] == '=') return *entry + 3;
    return nullptr;
}

// Drops the kept texts when TZ is no longer what it was. For one that is cut none is kept.
void follow_zone() {
    const char *zone = zone_text();
    const bool same =
        zone && sg_zone.is_set ? strcmp(zone, sg_zone.text) == 0 : !zone && !sg_zone.is_set;
    if (same) return;
    for (Kept &kept : sg_kept) kept = {};
    sg_zone.is_set = zone != nullptr;
    sg_zone.is_cut = !dt::copy_text(sg_zone.text, zone);
}

const char *kept_text(time_t now, time_t time, const char *format) {
    for (const Kept &kept : sg_kept)
        if (kept.serves(now, time, format)) return kept.text;
    return nullptr;
}

void keep(time_t now, time_t time, const char *format, const char *text) {
    Kept *kept = &sg_kept[sg_oldest];
    if (sg_zone.is_cut || strlen(format) >= sizeof kept->format ||
        strlen(text) >= sizeof kept->text)
        return;
    kept->made = now;
    kept->shown = time;
    strcpy(kept->format, format);
    strcpy(kept->text, text);
    sg_oldest ^= 1;
}

uint32_t microseconds(time_t seconds, long rest) {
    return static_cast<uint32_t>(seconds) * 1000000u + static_cast<uint32_t>(rest);
}

} // namespace

// The sum may leave 32 bits, and then wraps.
time_t DTTime_GetTime(int32_t offset) {
    return static_cast<time_t>(int64_t{time(nullptr)} + offset);
}

time_t DTTime_Now(void) { return DTTime_GetTime(0); }

char *DTTime_Format(char *out, const char *format, time_t time) {
    if (!out) return out;
    if (!format) format = "";
    const time_t now = DTTime_Now();
    if (time == 0) time = now;
    follow_zone();
    if (const char *text = kept_text(now, time, format)) return strcpy(out, text);
    const tm *local = localtime(&time);
    const tm none = {};
    write(out, format, local ? *local : none);
    if (local) keep(now, time, format, out);
    return out;
}

// A system with 32-bit times refuses to tell the time once it no longer fits.
uint32_t DTTime_GetUTime(void) {
    timeval now;
    if (gettimeofday(&now, nullptr) == 0) return microseconds(now.tv_sec, now.tv_usec);
    timespec since_boot = {};
    clock_gettime(CLOCK_MONOTONIC, &since_boot);
    return microseconds(since_boot.tv_sec, since_boot.tv_nsec / 1000);
}

int DTTime_Sleep(uint32_t milliseconds) {
    const uint32_t microseconds = milliseconds * 1000u;
    const int result = usleep(microseconds);
    // A loop that rests here must not run free because the system refuses to sleep.
    if (result != 0 && errno != EINTR) poll(nullptr, 0, static_cast<int>(microseconds / 1000));
    return result;
}
