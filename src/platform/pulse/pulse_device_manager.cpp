#include "platform/pulse/pulse_device_manager.h"

#include <mutex>

namespace tappix {
namespace {

std::string property(pa_proplist* props, const char* key) {
    const char* value = props ? pa_proplist_gets(props, key) : nullptr;
    return value ? value : "";
}

/// Holds the loop lock for a scope.
class Locked {
public:
    explicit Locked(PulseConnection& connection) : connection_(connection) { connection_.lock(); }
    ~Locked() { connection_.unlock(); }

private:
    PulseConnection& connection_;
};

} // namespace

PulseDeviceManager::PulseDeviceManager()
    : connection_(
          "Tappix device queries", "tappix-devices",
          {[this](pa_context* context) { onConnected(context); }, [this] { reportChange(); }}) {
    connection_.start();
}

PulseDeviceManager::~PulseDeviceManager() {
    connection_.stop();
}

void PulseDeviceManager::setOnDevicesChanged(std::function<void()> onChanged) {
    const std::lock_guard guard(onChangedMutex_);
    onChanged_ = std::move(onChanged);
}

void PulseDeviceManager::reportChange() {
    const std::lock_guard guard(onChangedMutex_);
    if (onChanged_)
        onChanged_();
}

void PulseDeviceManager::onConnected(pa_context* context) {
    pa_context_set_subscribe_callback(context, &PulseDeviceManager::onEvent, this);
    const auto mask = static_cast<pa_subscription_mask_t>(
        PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SERVER | PA_SUBSCRIPTION_MASK_SINK_INPUT);
    if (pa_operation* op = pa_context_subscribe(context, mask, nullptr, nullptr))
        pa_operation_unref(op);
    // Reached for the first time or after a restart: what was known may be stale.
    reportChange();
}

void PulseDeviceManager::onEvent(pa_context*, pa_subscription_event_type_t type, std::uint32_t,
                                 void* self) {
    const auto facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const auto kind = type & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
    // A sink's or a stream's own changes (volume, state) are frequent and change no
    // answer; the server's change is a new default.
    const bool relevant =
        facility == PA_SUBSCRIPTION_EVENT_SERVER
            ? kind == PA_SUBSCRIPTION_EVENT_CHANGE
            : kind == PA_SUBSCRIPTION_EVENT_NEW || kind == PA_SUBSCRIPTION_EVENT_REMOVE;
    if (relevant)
        static_cast<PulseDeviceManager*>(self)->reportChange();
}

pa_context* PulseDeviceManager::begin() {
    deadline_ = pa_rtclock_now() + static_cast<pa_usec_t>(kTimeoutMs) * PA_USEC_PER_MSEC;
    return connection_.waitReady(kTimeoutMs);
}

bool PulseDeviceManager::await(pa_operation* operation, const bool& done) {
    if (!operation)
        return false;
    const pa_usec_t now = pa_rtclock_now();
    if (now >= deadline_) {
        pa_operation_cancel(operation);
        pa_operation_unref(operation);
        return false;
    }
    connection_.waitFor(
        [&] { return done || pa_operation_get_state(operation) != PA_OPERATION_RUNNING; },
        static_cast<int>((deadline_ - now + PA_USEC_PER_MSEC - 1) / PA_USEC_PER_MSEC));
    if (pa_operation_get_state(operation) == PA_OPERATION_RUNNING)
        pa_operation_cancel(operation);
    pa_operation_unref(operation);
    return done;
}

PulseDeviceManager::ServerFacts PulseDeviceManager::server() {
    ServerFacts facts;
    pa_context* context = connection_.readyContext();
    if (!context)
        return facts;
    struct Query {
        PulseDeviceManager* self;
        ServerFacts* facts;
        bool done = false;
    } query{this, &facts};
    pa_operation* op = pa_context_get_server_info(
        context,
        [](pa_context*, const pa_server_info* info, void* data) {
            auto* q = static_cast<Query*>(data);
            if (info) {
                q->facts->ok = true;
                q->facts->defaultSink = info->default_sink_name ? info->default_sink_name : "";
                q->facts->defaultSource =
                    info->default_source_name ? info->default_source_name : "";
                q->facts->description =
                    std::string(info->server_name ? info->server_name : "server") + " " +
                    (info->server_version ? info->server_version : "");
            }
            q->done = true;
            q->self->connection_.signal();
        },
        &query);
    if (!await(op, query.done))
        facts.ok = false;
    return facts;
}

std::vector<AudioDeviceManager::Device> PulseDeviceManager::outputDevices() {
    Locked lock(connection_);
    std::vector<Device> devices;
    pa_context* context = begin();
    if (!context)
        return devices;
    struct Query {
        PulseDeviceManager* self;
        std::vector<Device>* devices;
        bool done = false;
    } query{this, &devices};
    pa_operation* op = pa_context_get_sink_info_list(
        context,
        [](pa_context*, const pa_sink_info* info, int eol, void* data) {
            auto* q = static_cast<Query*>(data);
            if (eol) {
                q->done = true;
                q->self->connection_.signal();
                return;
            }
            // Nameless sinks are not offered.
            if (info && info->name && info->description && *info->description)
                q->devices->push_back(Device{info->index, info->name, info->description});
        },
        &query);
    if (!await(op, query.done))
        return {};
    return devices;
}

std::optional<std::uint32_t> PulseDeviceManager::deviceID(const std::string& uid) {
    for (const Device& device : outputDevices()) {
        if (device.uid == uid)
            return device.id;
    }
    return std::nullopt;
}

std::optional<AudioDeviceManager::Device> PulseDeviceManager::defaultOutput() {
    std::string name;
    {
        Locked lock(connection_);
        begin();
        const ServerFacts facts = server();
        if (!facts.ok || facts.defaultSink.empty())
            return std::nullopt;
        name = facts.defaultSink;
    }
    for (const Device& device : outputDevices()) {
        if (device.uid == name)
            return device;
    }
    return std::nullopt;
}

PulseDeviceManager::SinkFacts PulseDeviceManager::defaultSinkFacts() {
    Locked lock(connection_);
    SinkFacts facts;
    pa_context* context = begin();
    const ServerFacts serverFacts = server();
    if (!serverFacts.ok || serverFacts.defaultSink.empty() || !context)
        return facts;
    struct Query {
        PulseDeviceManager* self;
        SinkFacts* facts;
        bool done = false;
    } query{this, &facts};
    pa_operation* op = pa_context_get_sink_info_by_name(
        context, serverFacts.defaultSink.c_str(),
        [](pa_context*, const pa_sink_info* info, int eol, void* data) {
            auto* q = static_cast<Query*>(data);
            if (eol) {
                q->done = true;
                q->self->connection_.signal();
                return;
            }
            if (info) {
                q->facts->found = true;
                q->facts->bus = property(info->proplist, PA_PROP_DEVICE_BUS);
                q->facts->formFactor = property(info->proplist, PA_PROP_DEVICE_FORM_FACTOR);
            }
        },
        &query);
    if (!await(op, query.done))
        return {};
    return facts;
}

bool PulseDeviceManager::isDefaultOutputBuiltIn() {
    const SinkFacts facts = defaultSinkFacts();
    return facts.found &&
           (facts.bus == "pci" || facts.bus == "platform" || facts.formFactor == "internal");
}

bool PulseDeviceManager::isDefaultOutputBluetooth() {
    const SinkFacts facts = defaultSinkFacts();
    return facts.found && facts.bus == "bluetooth";
}

bool PulseDeviceManager::isMicrophoneInUse() {
    Locked lock(connection_);
    pa_context* context = begin();
    const ServerFacts facts = server();
    if (!facts.ok || facts.defaultSource.empty() || !context)
        return false;
    struct Source {
        PulseDeviceManager* self;
        bool found = false, monitor = false, running = false;
        std::uint32_t index = PA_INVALID_INDEX;
        bool done = false;
    } source{this};
    pa_operation* op = pa_context_get_source_info_by_name(
        context, facts.defaultSource.c_str(),
        [](pa_context*, const pa_source_info* info, int eol, void* data) {
            auto* s = static_cast<Source*>(data);
            if (eol) {
                s->done = true;
                s->self->connection_.signal();
                return;
            }
            if (info) {
                s->found = true;
                s->monitor = info->monitor_of_sink != PA_INVALID_INDEX;
                s->running = info->state == PA_SOURCE_RUNNING;
                s->index = info->index;
            }
        },
        &source);
    if (!await(op, source.done) || !source.found || source.monitor)
        return false;
    if (source.running)
        return true;
    struct Outputs {
        PulseDeviceManager* self;
        std::uint32_t source;
        bool recording = false, done = false;
    } outputs{this, source.index};
    op = pa_context_get_source_output_info_list(
        context,
        [](pa_context*, const pa_source_output_info* info, int eol, void* data) {
            auto* o = static_cast<Outputs*>(data);
            if (eol) {
                o->done = true;
                o->self->connection_.signal();
                return;
            }
            if (info && info->source == o->source)
                o->recording = true;
        },
        &outputs);
    return await(op, outputs.done) && outputs.recording;
}

bool PulseDeviceManager::isCameraInUse() {
    return camera_.inUse();
}

bool PulseDeviceManager::isServerReachable() {
    Locked lock(connection_);
    begin();
    return server().ok;
}

std::string PulseDeviceManager::serverDescription() {
    Locked lock(connection_);
    begin();
    const ServerFacts facts = server();
    return facts.ok ? facts.description : std::string();
}

std::optional<AudioDeviceManager::OutputLatency>
PulseDeviceManager::outputLatency(const std::string& uid) {
    Locked lock(connection_);
    pa_context* context = begin();
    if (!context)
        return std::nullopt;
    struct Query {
        PulseDeviceManager* self;
        std::optional<OutputLatency> latency = std::nullopt;
        std::uint32_t card = PA_INVALID_INDEX;
        bool done = false;
    } query{this};
    pa_operation* op = pa_context_get_sink_info_by_name(
        context, uid.c_str(),
        [](pa_context*, const pa_sink_info* info, int eol, void* data) {
            auto* q = static_cast<Query*>(data);
            if (eol) {
                q->done = true;
                q->self->connection_.signal();
                return;
            }
            if (!info)
                return;
            OutputLatency latency;
            latency.currentSeconds = static_cast<double>(info->latency) / 1e6;
            latency.configuredSeconds = static_cast<double>(info->configured_latency) / 1e6;
            latency.dynamic = (info->flags & PA_SINK_DYNAMIC_LATENCY) != 0;
            latency.suspended = info->state == PA_SINK_SUSPENDED;
            if (info->active_port && info->active_port->name)
                latency.port = info->active_port->name;
            q->latency = latency;
            q->card = info->card;
        },
        &query);
    if (!await(op, query.done) || !query.latency)
        return std::nullopt;
    if (query.card == PA_INVALID_INDEX || query.latency->port.empty())
        return query.latency;
    // The offset belongs to the card's port of the same name.
    struct Card {
        PulseDeviceManager* self;
        const std::string* port;
        std::int64_t offsetUs = 0;
        bool done = false;
    } card{this, &query.latency->port};
    op = pa_context_get_card_info_by_index(
        context, query.card,
        [](pa_context*, const pa_card_info* info, int eol, void* data) {
            auto* c = static_cast<Card*>(data);
            if (eol) {
                c->done = true;
                c->self->connection_.signal();
                return;
            }
            for (std::uint32_t i = 0; info && i < info->n_ports; ++i)
                if (info->ports[i]->name && *c->port == info->ports[i]->name)
                    c->offsetUs = info->ports[i]->latency_offset;
        },
        &card);
    if (await(op, card.done))
        query.latency->portOffsetSeconds = static_cast<double>(card.offsetUs) / 1e6;
    return query.latency;
}

} // namespace tappix
