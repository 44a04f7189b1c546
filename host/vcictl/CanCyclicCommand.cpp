#include "vcictl/CanCyclicCommand.h"

#include "vcictl/CanPlanOutput.h"
#include "vcictl/CanRefusal.h"
#include "vcictl/JsonText.h"
#include "vcihost/DeviceTime.h"

#include <CLI/App.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace {

constexpr char kFooter[] =
    "The device answers before it plans: the answer says that channel and mode allow\n"
    "it. A frame that is started again gets new data, period and place. Stops go\n"
    "first. To stop a frame its identifier needs the kind it was started with: 123,\n"
    "00000123, 123#R remote, 123## CAN FD.\n"
    "\n"
    "With --bitrate the plan is shown that a device makes which has planned nothing\n"
    "before.\n"
    "\n"
    "Examples:\n"
    "  vcictl can cyclic can0 123#11@10ms 124##122@20ms --bitrate 500k --dbitrate 2M\n"
    "  vcictl can cyclic can0 --stop 123 124##";

} // namespace

CanCyclicCommand::CanCyclicCommand(CLI::App& app) {
    app.footer(kFooter);
    app.add_option("CHANNEL", channel_, "can0 to can5")->required()->type_name("");
    app.add_option("FRAME@PERIOD", frames_, "Frames to start, 1ms to 65535ms")->type_name("");
    app.add_option("--stop", stops_, "Identifiers of frames to stop")->type_name("ID");
    CLI::Option* const rate =
        app.add_option("--bitrate", rate_, "Nominal bit rate, for the plan")->type_name("RATE");
    app.add_option("--dbitrate", dataRate_, "Data bit rate, for the plan")
        ->type_name("RATE")
        ->needs(rate);
    app.add_flag("--json", json_, "Print a JSON object");
    AddWait(app, wait_);
}

ExitStatus CanCyclicCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseCanChannel(channel_);
    std::vector<vcihost::CanPeriodic> stops;
    for (const std::string& text : stops_) {
        stops.push_back({vcihost::ParseCanId(text), 0});
    }
    std::vector<vcihost::CanTask> tasks;
    std::vector<vcihost::CanPeriodic> starts;
    for (const std::string& text : frames_) {
        tasks.push_back(vcihost::ParseCanTask(text, channel));
        starts.push_back({tasks.back().frame, tasks.back().periodMs});
    }
    vcihost::CheckDistinct(tasks);
    if (stops.empty() && starts.empty()) {
        throw UsageError("give frames to start, or --stop and identifiers");
    }
    if (!rate_.empty()) { // what is wrong with the rates is told before anything is sent
        PlanRates(rate_, dataRate_, tasks);
    }
    auto requests = vcihost::CanPeriodicRequests(channel, stops);
    const auto more = vcihost::CanPeriodicRequests(channel, starts);
    requests.insert(requests.end(), more.begin(), more.end());
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    uint64_t time = 0;
    for (const vcihost::Bytes& request : requests) {
        const AskResult result = Ask(session, request, wait_, CanSendAdvice(channel));
        if (result.status != kExitOk) {
            return result.status;
        }
        time = result.deviceTime;
    }
    PrintDone(tool.out, channel, tasks, time);
    return kExitOk;
}

void CanCyclicCommand::PrintDone(Output& out, uint8_t channel,
                                 const std::vector<vcihost::CanTask>& tasks,
                                 uint64_t deviceTime) const {
    const std::string name = vcihost::CanChannelName(channel);
    const bool planned = !rate_.empty() && !tasks.empty();
    vcihost::CanPlan plan;
    if (planned) {
        plan = vcihost::PlanCanTasks(tasks, PlanRates(rate_, dataRate_, tasks));
    }
    if (json_) {
        nlohmann::ordered_json object{{"channel", name},
                                      {"starts", tasks.size()},
                                      {"stops", stops_.size()},
                                      {"device_ns", deviceTime}};
        if (planned) {
            object["plan"] = PlanJson(plan, nullptr);
        }
        out.Line(JsonText(object));
        return;
    }
    out.Line(fmt::format("{}: {}, {} accepted, device time {}", name,
                         CountText(tasks.size(), "start", "starts"),
                         CountText(stops_.size(), "stop", "stops"), vcihost::TimeText(deviceTime)));
    if (planned) {
        PrintPlan(out, plan);
    }
}
