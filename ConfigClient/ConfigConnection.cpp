#include "ConfigClient/ConfigConnection.h"

#include <cstring>

#include "ConfigClient/Connection.h"
#include "ConfigClient/TableNames.h"

namespace ConfigConnection {

using MTObjects::THolder;
using VXTPL::VXApplicationImpl;

std::atomic<ChangeListenerFunction> ChangeListener{nullptr};

namespace {

constexpr u32 kApplicationNameSize = 256;
constexpr u32 kSignalNameSize = 64;

// Connects the table's signal before its ids are fetched, so that no change falls between the two. A name that does not
// fit leaves the signal's name empty.
void SubscribeTable(VXApplicationImpl& application, const char* table) {
    char signal[kSignalNameSize] = {};
    if (sizeof Signals::UPDOf + std::strlen(table) <= sizeof signal) {
        std::strcpy(signal, Signals::UPDOf);
        std::strcat(signal, table);
    }
    VXConnectSignal(application.Name(), signal, kUpdateSlot);
    Connection::Instance().Lists().Ensure(&application, table);
}

}  // namespace

bool Connect(const char* host, u32 port, const char* const* tables, u32 count, const void* credentials,
             u32 credentialsSize) {
    Connection& connection = Connection::Instance();
    char name[kApplicationNameSize] = {};
    THolder<VXApplicationImpl> application;
    if (VXConnect(host, port, name, sizeof name, credentials, credentialsSize) == 0) {
        application = new VXApplicationImpl(name);
    }
    connection.SetApplication(application);
    if (!application.IsValid()) return false;

    for (u32 index = 0; index < count; ++index) SubscribeTable(*application, tables[index]);
    connection.RegisterHandler(kUpdateSlot, new VXTPL::ConcreteHandler<UpdateListener>());
    connection.RegisterHandler(kBatchSlot, new VXTPL::ConcreteHandler<BatchListener>());
    VXConnectSignal(application->Name(), Signals::BATCHUPDATE, kBatchSlot);
    // A service with more tables raises their signals too, and an event that waits holds those behind it.
    VXDropOtherSignals(application->Name());
    if (application->IsConnected() && !application->HasMissedReply()) return true;

    // Lost on the way. The lists must not stay: the next try would take them for its own.
    Disconnect();
    connection.SetApplication(nullptr);
    return false;
}

bool Disconnect() {
    Connection& connection = Connection::Instance();
    connection.Lists().Clear();
    const THolder<VXApplicationImpl> application = connection.Application();
    if (application) application->Disconnect();
    return true;
}

const char* GetServerName() {
    const THolder<VXApplicationImpl> application = Connection::Instance().Application();
    return application ? application->Name() : "";
}

void CreateIndex(const char* table, const char* field, const char* secondField) {
    Connection& connection = Connection::Instance();
    connection.Lists().CreateIndex(connection.Application(), table, field, secondField);
}

THolder<TObjectListImpl> GetList(const char* name) {
    return Connection::Instance().Lists().Find(name);
}

}  // namespace ConfigConnection
