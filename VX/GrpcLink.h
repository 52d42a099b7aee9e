// The link between processes, over gRPC. Link.proto is its contract on the wire.
#pragma once

#include <memory>
#include <string>

#include "VX/Link.h"

namespace VX {

// Connects over TCP. A dead server is seen at once, a hung one after 40 seconds at most. A connection that fails is
// tried once more, at once and within the same time limit, since the library may be wrong about it. The library under
// it and its threads are there from the first try on until the connector goes. Before each try it is looked whether
// there are descriptors enough, and before the library begins, by starting up to 24 threads and joining them, whether
// there are threads; a try for which there is no room fails.
std::unique_ptr<ILinkConnector> CreateGrpcConnector();

// Listens on `host`:`port` (an empty host: 127.0.0.1; port 0: any free one, told by Port()) under the name
// "ConfigService". Null with a reason when the port cannot be had; throws std::system_error when there are too few
// threads or descriptors, which is looked at as for a try to connect. `service` must outlive the server; none of its
// operations runs any more when Stop() has returned, which waits for those under way, and so must not be called by
// them.
std::unique_ptr<ILinkServer> CreateGrpcServer(const std::string& host, u32 port, ILinkService& service,
                                              std::string& reason);

}  // namespace VX
