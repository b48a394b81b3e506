#include "table/format.h"

#include "platform/vrk.h"

#include <stddef.h>
#include <string.h>

namespace {

// Length modifiers, the longer ones first, and the bytes that an integer conversion then takes.
struct Modifier {
    char text[3];
    uint8_t size;
};

constexpr Modifier modifiers[] = {
    {"hh", sizeof(int)},     {"h", sizeof(int)},    {"ll", sizeof(long long)}, {"l", sizeof(long)},
    {"j", sizeof(intmax_t)}, {"z", sizeof(size_t)}, {"t", sizeof(ptrdiff_t)},  {"", sizeof(int)},
};

struct Conversion {
    const Modifier *modifier;
    const char *letter;
};

bool one_of(char letter, const char *letters) { return letter && strchr(letters, letter); }

// Behind the next '%' that begins a conversion; null when there is none.
const char *next_conversion(const char *at) {
    while ((at = strchr(at, '%')) && at[1] == '%') at += 2;
    return at ? at + 1 : nullptr;
}

// Larger numbers only cost time: a text ends at 99 characters. A fourth digit is taken for the
// conversion's letter, and there is no such letter.
const char *skip_number(const char *at) {
    for (int digits = 0; digits < 3 && one_of(*at, "0123456789"); ++digits) ++at;
    return at;
}

const Modifier *modifier_at(const char *at) {
    const Modifier *modifier = modifiers;
    while (strncmp(at, modifier->text, strlen(modifier->text)) != 0) ++modifier;
    return modifier;
}

Conversion read_conversion(const char *at) {
    at = skip_number(at + strspn(at, "-+ #0'"));
    if (*at == '.') at = skip_number(at + 1);
    const Modifier *modifier = modifier_at(at);
    return {modifier, at + strlen(modifier->text)};
}

bool takes(const Conversion &conversion, int32_t type) {
    const char letter = *conversion.letter;
    const size_t size = conversion.modifier->size;
    const bool plain = conversion.modifier->text[0] == '\0';
    const bool integer = one_of(letter, "diouxX") || (plain && letter == 'c');
    switch (type) {
    case DTTABLE_DOUBLE:
    case DTTABLE_FLOAT:
        return one_of(letter, "aAeEfFgG") && (plain || strcmp(conversion.modifier->text, "l") == 0);
    case DTTABLE_INT32:
        return integer && size == sizeof(int32_t);
    case DTTABLE_INT64:
        return integer && size == sizeof(int64_t);
    case DTTABLE_TEXT:
        return (plain && one_of(letter, "sp")) || (integer && size <= sizeof(void *));
    default:
        return false;
    }
}

bool wants_a_text(const char *format) {
    const char *conversion = next_conversion(format);
    return conversion && *read_conversion(conversion).letter == 's';
}

// What stands in the field counts: platforms differ in what they report of a text that was cut, and
// a zero character may end it early.
template <typename T> int32_t format_into(char (&text)[100], const char *format, T argument) {
    text[0] = '\0';
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // checked when the column was defined
    TMB_snprintf(text, sizeof text, format, argument);
#pragma GCC diagnostic pop
    text[sizeof text - 1] = '\0';
    return static_cast<int32_t>(strlen(text));
}

} // namespace

bool dt::format_suits(const char *format, int32_t type) {
    if (!format || type < DTTABLE_DOUBLE || type > DTTABLE_TEXT) return false;
    if (strnlen(format, sizeof DTTableColumn::format) == sizeof DTTableColumn::format) return false;
    const char *found = next_conversion(format);
    if (!found) return true;
    const Conversion conversion = read_conversion(found);
    return takes(conversion, type) && !next_conversion(conversion.letter + 1);
}

int32_t dt::format_number(char (&text)[100], const char *format, int32_t type,
                          const DTTableValue &value) {
    switch (type) {
    case DTTABLE_DOUBLE:
        return format_into(text, format, value.f64);
    case DTTABLE_FLOAT:
        return format_into(text, format, static_cast<double>(value.f32));
    case DTTABLE_INT32:
        return format_into(text, format, value.i32);
    default:
        return format_into(text, format, value.i64);
    }
}

int32_t dt::format_text(char (&text)[100], const char *format, const void *argument) {
    if (!argument && wants_a_text(format)) argument = "(null)";
    char made[sizeof text];
    const int32_t length = format_into(made, format, argument);
    memcpy(text, made, static_cast<size_t>(length) + 1);
    return length;
}
