// The process-wide roots of the attribute-log connections: the directory of
// connections and the manager of their demultiplexers. Both are plain
// entities made on first use and kept for the life of the process.
#pragma once

#include "Zel/Entity.h"

namespace Zel {

class ZEL_API ConnectionDir : public Entity {
public:
    explicit ConnectionDir(Name name) : Entity(std::move(name)) {}
    ZelType const* fwkType() const override { return &_zelType; }
    static ZelType const _zelType;
};

namespace NboAttrLog {

class ZEL_API DemuxerManager : public Entity {
public:
    explicit DemuxerManager(Name name) : Entity(std::move(name)) {}
    ZelType const* fwkType() const override { return &_zelType; }
    static ZelType const _zelType;
};

ZEL_API ConnectionDir* connectionDir();

} // namespace NboAttrLog

ZEL_API Ptr<NboAttrLog::DemuxerManager> globalNboAttrLogDemuxerManager();

} // namespace Zel
