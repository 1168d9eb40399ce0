// Base of every client: holds one server description and says when it is complete.
#pragma once

#include <string>

#include "KXCommonType.h"
#include "KXExport.h"

class KX_API KXServerBase {
public:
    KXServerBase();
    KXServerBase(const KXServerBase& other);
    KXServerBase& operator=(const KXServerBase& other);
    // Not virtual: clients are destroyed through their own type.
    ~KXServerBase();

    // 0, or 10001 when info is incomplete (the held record then stays as it was).
    virtual long Init(const _init_Info_s& info);
    bool IsInit();
    static long CheckInitInfo(const _init_Info_s& info);

    _init_Info_s m_stInitInfo;
};
