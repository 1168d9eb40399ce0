/// @file
/// Base of every client: holds one server description and says when it is complete.
#pragma once

#include <string>

#include "KXCommonType.h"
#include "KXExport.h"

/// Base of every client class: one server description (_init_Info_s) and the
/// rule that says when it is complete.
class KX_API KXServerBase {
public:
    /// Holds an empty description, which is not complete.
    KXServerBase();
    /// Copies the held description.
    KXServerBase(const KXServerBase& other);
    /// Copies the held description.
    KXServerBase& operator=(const KXServerBase& other);
    /// Not virtual: clients are destroyed through their own type.
    ~KXServerBase();

    /// Keeps a copy of info when CheckInitInfo passes it, and keeps its project
    /// secret out of the log. 0, or 10001 when info is incomplete (the held
    /// record then stays as it was).
    virtual long Init(const _init_Info_s& info);
    /// Whether the held description is complete (CheckInitInfo gives 0).
    bool IsInit();
    /// The completeness rule: 0 when info has ServerIp and Port with SerType 2
    /// or 4; or ProjectID, ProjectSecret, ServerIp and Port whatever the type;
    /// or ProjectID and ServerIp with SerType 9 or 10. Else 10001.
    static long CheckInitInfo(const _init_Info_s& info);

    /// The description in use, set by a successful Init.
    _init_Info_s m_stInitInfo;
};
