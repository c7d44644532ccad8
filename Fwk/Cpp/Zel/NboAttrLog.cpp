#include "Zel/NboAttrLog.h"

#include "Zel/TypeOps.h"

namespace Zel {

namespace {
constexpr ArgDesc kCtor[] = {{"name", "Zel::Name"}, {nullptr, nullptr}};
constexpr TypeOps kConnectionDirOps = entityOps<ConnectionDir, Name>();
constexpr TypeOps kDemuxerManagerOps = entityOps<NboAttrLog::DemuxerManager, Name>();
constexpr uint16_t kEntityFlags = ZelType::isEntity_ | ZelType::hasOwnPtrInterface_;
} // namespace

constinit ZelType const ConnectionDir::_zelType("Zel::ConnectionDir", sizeof(ConnectionDir), &Entity::_zelType,
                                                kEntityFlags, nullptr, 0, kCtor, &kConnectionDirOps);
constinit ZelType const NboAttrLog::DemuxerManager::_zelType(
    "Zel::NboAttrLog::DemuxerManager", sizeof(NboAttrLog::DemuxerManager), &Entity::_zelType, kEntityFlags,
    nullptr, 0, kCtor, &kDemuxerManagerOps);

// Both are never destroyed: code anywhere may hold them until exit.
ConnectionDir* NboAttrLog::connectionDir() {
    static ConnectionDir* const d = zelNew<ConnectionDir>(Name("connectionDir")).release();
    return d;
}

Ptr<NboAttrLog::DemuxerManager> globalNboAttrLogDemuxerManager() {
    static NboAttrLog::DemuxerManager* const m =
        zelNew<NboAttrLog::DemuxerManager>(Name("demuxerManager")).release();
    return Ptr<NboAttrLog::DemuxerManager>(m);
}

namespace {
TypeRegistration const rConnectionDir(&ConnectionDir::_zelType);
TypeRegistration const rDemuxerManager(&NboAttrLog::DemuxerManager::_zelType);
} // namespace

} // namespace Zel
