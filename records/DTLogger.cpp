#include "records/DTLogger.h"

#include "base/target.h"
#include "base/text.h"
#include "foundation/DTPrint.h"
#include "foundation/DTTime.h"
#include "platform/vrk.h"

#include <string.h>
#include <unistd.h>

namespace {

constexpr uint32_t default_info_size = 1024 * 1024;
constexpr uint16_t records_per_pause = 100;

const char *key_of(uint32_t level) {
    switch (level) {
    case 2:
        return "w";
    case 3:
        return "e";
    default:
        return "l";
    }
}

bool accepts(const DTLogger *logger, uint32_t level) {
    return level > 3 || (logger->flags & (DTLOGGER_LEVEL0 << level)) != 0;
}

void echo(const char *text, bool line_break) {
    DTPrint_Show(text, 0);
    if (line_break) DTPrint_Show("\n", 1);
}

void echo_as_asked(const DTLogger *logger, uint32_t level, const char *text) {
    if (!(logger->flags & DTLOGGER_ECHO)) return;
    const bool ends_only = logger->flags & DTLOGGER_ECHO_ENDS;
    const bool wanted = ends_only ? level == 0 || level == 3 : *text != '\0';
    if (wanted) echo(text, level != 0);
}

// As DTInfo_Write, for a key whose length is known.
int32_t store(DTInfo *info, uint32_t level, const char *text) {
    return DTInfo_Append(info, key_of(level), 1, text, static_cast<uint16_t>(strlen(text)));
}

int32_t store_line(DTLogger *logger, uint32_t level, const char *pattern, const char *text) {
    if (!logger->info) logger->info = DTInfo_New(logger->info_size);
    char stamp[100];
    DTTime_Format(stamp, pattern, 0);
    const int32_t stored = store(logger->info, level, stamp);
    return stored + store(logger->info, level, text);
}

// Console and byte buffer take a length of 0 for something else.
void show_line(DTBuf *target, const uint8_t *value, uint16_t length) {
    if (dt::is_console(target)) {
        if (length != 0) DTPrint_Show(reinterpret_cast<const char *>(value), length);
        DTPrint_Show("\n", 1);
    } else {
        if (length != 0) DTBuf_Append(target, value, length);
        DTBuf_Append(target, "\n", 1);
    }
}

} // namespace

DTLogger *DTLogger_New(uint32_t flags) {
    DTLogger *logger = static_cast<DTLogger *>(DTMem_LocalMalloc(sizeof(DTLogger)));
    if (!logger) return nullptr;
    memset(logger, 0, sizeof *logger);
    logger->header_top = -1;
    logger->flags = flags;
    logger->info_size = default_info_size;
    return logger;
}

void DTLogger_Release(DTLogger *logger) {
    if (!logger) return;
    DTInfo_Release(logger->info);
    if (logger->fd != 0) close(logger->fd);
    DTMem_LocalFree(logger);
}

int32_t DTLogger_Write(DTLogger *logger, uint32_t level, const char *text) {
    if (!logger || !text) return -1;
    if (logger->ignore) return 0;
    if (!accepts(logger, level)) return -1;
    echo_as_asked(logger, level, text);
    if (!(logger->flags & DTLOGGER_STORE)) return -1;
    return store_line(logger, level, "YYYY/MM/DD HH:MI:SS", text);
}

void DTLogger_Append(DTLogger *logger, uint32_t level, uint32_t, const char *text) {
    if (!logger || !text || logger->ignore) return;
    if (level == 0 && *text != '\0') echo(text, true);
    store_line(logger, level, "MM/DD HH:MI:SS ", text);
}

void DTLogger_ShowToBuf(DTLogger *logger, DTBuf *target) {
    if (!logger || !logger->info) return;
    if (!dt::is_console(target) && target->unit != 1) return;
    uint32_t pos = DTINFO_FIRST;
    const uint8_t *value;
    uint16_t length;
    for (uint16_t shown = 0;
         DTInfo_Get(logger->info, nullptr, 0, &pos, nullptr, nullptr, &value, &length); ++shown) {
        show_line(target, value, length);
        if (shown % records_per_pause == 0) VRK_Delay(1000);
    }
}

void DTLogger_ShowInfo(DTLogger *logger, uint32_t) { DTLogger_ShowToBuf(logger, nullptr); }

void DTLogger_Header(DTLogger *logger, const char *text) {
    if (!logger) return;
    if (logger->header_top < DTLOGGER_HEADERS - 1) ++logger->header_top;
    dt::copy_text(logger->headers[logger->header_top], text);
}

void DTLogger_Tail(DTLogger *logger) {
    if (logger && logger->header_top >= 0) --logger->header_top;
}

void DTLogger_SetFlag(DTLogger *logger, uint32_t flags) {
    if (logger) logger->flags = flags;
}

void DTLogger_Ignore(DTLogger *logger, uint32_t value) {
    if (logger) logger->ignore = value;
}

void DTLogger_SetInfoSize(DTLogger *logger, uint32_t size) {
    if (logger && !logger->info) logger->info_size = size;
}

void DTLogger_ClearInfo(DTLogger *logger) {
    if (logger) DTInfo_Clear(logger->info);
}

void DTLogger_SetUDP(DTLogger *logger, const char *addr, uint32_t port) {
    if (!logger) return;
    dt::copy_text(logger->udp_addr, addr);
    logger->udp_port = port;
}

void DTLogger_SetFileName(DTLogger *logger, const char *name) {
    if (logger && name) dt::copy_text(logger->file_name, name);
}
