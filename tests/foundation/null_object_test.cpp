// Every operation accepts a null object and then answers with its failure.
#include "support/story.h"

namespace {

uint64_t area[100];

// An argument that is fit for use.
template <typename T> T some() {
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(area);
    else
        return T{1};
}

template <typename R, typename T, typename... A> int64_t answer(R (*operation)(T *, A...)) {
    if constexpr (std::is_void_v<R>)
        return operation(nullptr, some<A>()...), 0;
    else if constexpr (std::is_pointer_v<R>)
        return operation(nullptr, some<A>()...) != nullptr;
    else
        return static_cast<int64_t>(operation(nullptr, some<A>()...));
}

template <typename... Operation> std::vector<int64_t> answers(Operation... operations) {
    return {answer(operations)...};
}

} // namespace

TEST(NullObject, IsAnsweredWithAFailureAndMakesNothing) {
    EXPECT_THAT(answers(DTMem_memcmp, DTList_FindPos, DTInfo_Append, DTInfo_Write, DTLogger_Write),
                testing::Each(-1));
    EXPECT_THAT(
        answers(DTMem_Release, DTMem_Get, DTMem_memset, DTMem_memget, DTMem_memcpy, DTMem_realloc,
                DTPrint_Release, DTPrint_SetPrint, DTPrint_PrintCh, DTPrint_Print, DTBuf_Release,
                DTBuf_Length, DTBuf_Clear, DTBuf_Get, DTBuf_Append, DTBuf_Set, DTList_Release,
                DTList_Length, DTList_Insert, DTList_Append, DTList_Push, DTList_Get, DTList_Set,
                DTList_Find, DTList_Remove, DTList_Popup, DTList_PopTail, DTHash_Set, DTHash_Get,
                DTHash_Find, DTHash_Delete, DTHash_Release, DTHash_Show, DTHash_ShowDepth,
                DTSet_Get, DTSet_Set, DTSet_Release, DTMD5_Init, DTMD5_Encode, DTMD5_Hash,
                DTInfo_ReSize, DTInfo_Clear, DTInfo_Release, DTInfo_Ignore, DTInfo_SetFlag,
                DTInfo_GetFlag, DTInfo_Append2Message, DTInfo_PackPre, DTInfo_Get, DTInfo_GetPack,
                DTInfo_AddInfo, DTInfo_ShowInfo, DTLogger_Dump, DTLogger_Release, DTLogger_Append,
                DTLogger_ShowInfo, DTLogger_ShowToBuf, DTLogger_Header, DTLogger_Tail,
                DTLogger_SetFlag, DTLogger_Ignore, DTLogger_SetInfoSize, DTLogger_ClearInfo,
                DTLogger_SetUDP, DTLogger_SetFileName, DTFuncLog_Show, DTFuncLog_ShowFunc,
                DTFuncLog_Get, DTFuncLog_Ignore, DTFuncLog_Release, DTFault_Regist, DTFault_Ignore,
                DTFault_SetInfo, DTFault_SetInitLog, DTFault_SetRunLog, DTFault_ShowInitLogToBuf,
                DTFault_ShowRunLogToBuf, DTFault_ShowInitLog, DTFault_ShowRunLog, DTFault_SetRegist,
                DTFault_SetRegist64, DTFault_SetRegistEx, DTFault_SetCounter, DTFault_SetCounter64,
                DTFault_SetCounterEx, DTFault_SetValue, DTTable_Release, DTTable_SetCaption,
                DTTable_SetTitle, DTTable_Set, DTTable_Get, DTTable_GetColNum, DTTable_GetRowNum,
                DTTable_ClearLines, DTTable_Clear, DTTable_Sum, DTTable_Show, DTTable_ShowToBuffer,
                DTTable_ShowToBuf),
        testing::Each(0));
    EXPECT_EQ(platform.allocations, 0u);
    EXPECT_EQ(platform.console(), "");
}
