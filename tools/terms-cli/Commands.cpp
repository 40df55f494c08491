#include "Commands.h"

#include <VerantiAPI.h>
#include <vconf.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "Format.h"

namespace termscli {

const char kServiceName[] = "com.velmora.tv.termsclient";

namespace {

using ItemList = std::vector<std::unique_ptr<STHomeDisclaimerContentItem>>;

// Product type of the set itself.
const char kTelevision[] = "TV";

// The store keys the library reads directly.
const char kAgreementsKey[] = "db/veranti/disclaimeragrees";
const char kMenuTitlesKey[] = "db/veranti/terms_title";

CVerantiAPI& Client() {
    return *CVerantiAPI::GetInstance();
}

std::string ProductType(const Invocation& invocation) {
    return invocation.Text("--product-type", kTelevision);
}

EHomeDisclaimerRequester Requester(const Invocation& invocation) {
    return static_cast<EHomeDisclaimerRequester>(invocation.Integer("--requester", 0));
}

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

Outcome Done(std::string text, Json::Value data = Json::Value(Json::objectValue)) {
    Outcome outcome;
    outcome.text = std::move(text);
    outcome.data = std::move(data);
    return outcome;
}

Outcome Refused(std::string sentence, Json::Value data = Json::Value(Json::objectValue), std::string text = "") {
    Outcome outcome;
    outcome.status = kExitRefused;
    outcome.error = std::move(sentence);
    outcome.data = std::move(data);
    outcome.text = std::move(text);
    return outcome;
}

// The library hands back no reason for most refusals; the service logs it.
const char kReasonInLog[] = " (the service's log says why)";

// A request that the service carries out or refuses, with nothing else to show.
Outcome Answer(bool accepted, const std::string& doneText, const std::string& what,
               const Json::Value& data = Json::Value(Json::objectValue)) {
    return accepted ? Done(doneText + "\n", data) : Refused("the service refused " + what + kReasonInLog, data);
}

// Takes over the records the library allocated for a list.
ItemList Own(const std::vector<STHomeDisclaimerContentItem*>& records) {
    ItemList items;
    for (STHomeDisclaimerContentItem* record : records) items.emplace_back(record);
    return items;
}

Json::Value ItemsToJson(const ItemList& items) {
    Json::Value list(Json::arrayValue);
    for (const auto& item : items) list.append(ItemToJson(*item));
    return list;
}

std::string ItemsToTable(const ItemList& items, bool withPosition) {
    std::vector<Row> rows;
    for (size_t i = 0; i < items.size(); ++i) {
        const STHomeDisclaimerContentItem& item = *items[i];
        Row row = {item.strItemId,
                   item.strVersion,
                   YesNo(item.bIsAgreed),
                   YesNo(item.bOnlyNotice),
                   std::to_string(item.vecDetailData.size() / 2),
                   item.strTitle};
        if (withPosition) row.insert(row.begin(), std::to_string(i));
        rows.push_back(row);
    }
    Row header = {"ID", "VERSION", "AGREED", "NOTICE", "SECTIONS", "TITLE"};
    if (withPosition) header.insert(header.begin(), "#");
    return Table(header, rows);
}

Outcome ShowItem(int result, const STHomeDisclaimerContentItem& item, const std::string& missing) {
    if (result != 0) return Refused("the service has no disclaimer " + missing);
    Json::Value data(Json::objectValue);
    data["disclaimer"] = ItemToJson(item);
    return Done(ItemToText(item, Filled::All), data);
}

// One request per id; refused when the service refuses any of them.
Outcome SetEachAgreement(const Invocation& invocation, bool agreed, Json::Value data) {
    std::vector<Row> rows;
    std::string refused;
    data["items"] = Json::Value(Json::arrayValue);
    for (const std::string& id : invocation.operands) {
        const bool accepted = Client().SetDisclaimerItemAgreement(id, agreed ? 1 : 0, ProductType(invocation));
        Json::Value entry(Json::objectValue);
        entry["id"] = id;
        entry["accepted"] = accepted;
        data["items"].append(entry);
        rows.push_back({id, accepted ? (agreed ? "agreed" : "withdrawn") : "refused"});
        if (!accepted) refused += (refused.empty() ? "" : ", ") + Quoted(id);
    }
    const std::string table = Table({"ID", "RESULT"}, rows);
    if (refused.empty()) return Done(table, data);
    const std::string action = agreed ? "the agreement to " : "the withdrawal of the agreement to ";
    return Refused("the service refused " + action + refused + kReasonInLog, data, table);
}

// agree and disagree: every id, --all, or (agree only) an object of agreements.
Outcome SetAgreements(const Invocation& invocation, bool agreed) {
    Json::Value data(Json::objectValue);
    if (invocation.Has("--json")) {
        Json::Value agreements = invocation.Object("--json");
        data["agreements"] = agreements;
        return Answer(Client().SetDisclaimersAgreement(agreements, true, ProductType(invocation)), "Agreements set.",
                      "the agreements", data);
    }
    data["agreed"] = agreed;
    if (!invocation.Has("--all")) return SetEachAgreement(invocation, agreed, data);
    data["all"] = true;
    return Answer(Client().SetAllDisclaimerItemAgreement(agreed ? 1 : 0, ProductType(invocation)),
                  agreed ? "Agreed to all disclaimers." : "Withdrew the agreement to all disclaimers.",
                  agreed ? "the agreement to all disclaimers" : "the withdrawal of the agreement to all disclaimers",
                  data);
}

Outcome Clone(const Invocation& invocation, bool toUsb) {
    const std::string& src = invocation.operands[0];
    const std::string& dest = invocation.operands[1];
    const bool accepted = toUsb ? Client().CopyCloneDataTVtoUSB(src, dest) : Client().CopyCloneDataUSBtoTV(src, dest);
    const std::string direction = toUsb ? "from the set to USB" : "from USB to the set";
    return Answer(accepted, "Copied " + src + " to " + dest + " (" + direction + ").",
                  "to copy clone data " + direction);
}

// A failed store call: bad keys are usage errors, anything else a refusal.
Outcome StoreFailure(const std::string& action, const std::string& key) {
    if (errno == EINVAL) throw UsageError(Quoted(key) + " is not a valid store key");
    if (errno == ENOENT) return Refused("the store holds no value for " + Quoted(key));
    return Refused("cannot " + action + " " + Quoted(key) + " in the store: " + std::strerror(errno));
}

// The library reads a store key it cannot open as "no": not agreed, no such
// item, no titles. Those answers are only true when the key is readable or
// absent; any other failure is the store's, reported with the system's reason.
bool StoreKeyReadable(const char* key, Outcome& failure) {
    errno = 0;
    char* value = vconf_get_str(key);
    const int reason = errno;
    std::free(value);
    if (value || reason == ENOENT) return true;
    failure = Refused(std::string("the configuration store cannot be read (") + key + "): " + std::strerror(reason));
    return false;
}

}  // namespace

Outcome Unreachable() {
    Outcome outcome;
    outcome.status = kExitUnreachable;
    outcome.error = std::string("the terms-client service (") + kServiceName + ") could not be reached";
    return outcome;
}

Outcome RunList(const Invocation& invocation) {
    std::vector<STHomeDisclaimerContentItem*> records;
    Client().GetDisclaimerDetails(records, Requester(invocation), ProductType(invocation));
    const ItemList items = Own(records);
    Json::Value data(Json::objectValue);
    data["requester"] = static_cast<int>(Requester(invocation));
    data["disclaimers"] = ItemsToJson(items);
    if (items.empty()) {
        return Done("The service lists no disclaimers for requester " + data["requester"].asString() + ".\n", data);
    }
    return Done(ItemsToTable(items, true), data);
}

Outcome RunShow(const Invocation& invocation) {
    STHomeDisclaimerContentItem item;
    if (invocation.Has("--index")) {
        const int index = invocation.Integer("--index", 0);
        const int result = Client().GetDisclaimerDetail(item, index, Requester(invocation), ProductType(invocation));
        return ShowItem(result, item,
                        "at position " + std::to_string(index) + " for requester " +
                            std::to_string(static_cast<int>(Requester(invocation))));
    }
    const std::string& id = invocation.operands[0];
    return ShowItem(Client().GetDisclaimerDetail(id, item, ProductType(invocation)), item, "with id " + Quoted(id));
}

Outcome RunRevised(const Invocation& invocation) {
    std::vector<STHomeDisclaimerContentItem*> records;
    const bool accepted =
        Client().GetRevisedDisclaimers(records, ProductType(invocation), invocation.Text("--terms", ""));
    const ItemList items = Own(records);
    if (!accepted)
        return Refused(std::string("the service refused the request for revised disclaimers") + kReasonInLog);
    Json::Value data(Json::objectValue);
    data["disclaimers"] = ItemsToJson(items);
    std::string text = items.empty() ? "No disclaimers are revised.\n" : "";
    for (const auto& item : items) text += (text.empty() ? "" : "\n") + ItemToText(*item, Filled::Revised);
    return Done(text, data);
}

Outcome RunAgree(const Invocation& invocation) {
    return SetAgreements(invocation, true);
}

Outcome RunDisagree(const Invocation& invocation) {
    return SetAgreements(invocation, false);
}

Outcome RunAgreement(const Invocation& invocation) {
    const std::string& id = invocation.operands[0];
    Outcome unreadable;
    if (!StoreKeyReadable(kAgreementsKey, unreadable)) return unreadable;
    int agreed = 0;
    Client().GetDisclaimerItemAgreement(id, &agreed, kTelevision);
    Json::Value data(Json::objectValue);
    data["id"] = id;
    data["agreed"] = agreed != 0;
    return Done(id + ": " + (agreed ? "agreed" : "not agreed") + "\n", data);
}

Outcome RunExists(const Invocation& invocation) {
    const std::string& id = invocation.operands[0];
    Outcome unreadable;
    if (!StoreKeyReadable(kAgreementsKey, unreadable)) return unreadable;
    const bool exists = Client().IsDisclaimerItemExist(id, kTelevision);
    Json::Value data(Json::objectValue);
    data["id"] = id;
    data["exists"] = exists;
    return Done(id + ": " + (exists ? "exists" : "does not exist") + "\n", data);
}

Outcome RunTitle(const Invocation& invocation) {
    const int index = invocation.IntegerOperand(0);
    Outcome unreadable;
    if (!StoreKeyReadable(kMenuTitlesKey, unreadable)) return unreadable;
    std::string title;
    if (Client().GetDisclaimerTitle(title, index) != 0) {
        return Refused("the store holds no menu title at position " + std::to_string(index));
    }
    Json::Value data(Json::objectValue);
    data["index"] = index;
    data["title"] = title;
    return Done(title + "\n", data);
}

Outcome RunTitles(const Invocation&) {
    Outcome unreadable;
    if (!StoreKeyReadable(kMenuTitlesKey, unreadable)) return unreadable;
    Json::Value data(Json::objectValue);
    data["titles"] = Json::Value(Json::arrayValue);
    std::vector<Row> rows;
    std::string title;
    for (int index = 0; Client().GetDisclaimerTitle(title, index) == 0; ++index) {
        data["titles"].append(title);
        rows.push_back({std::to_string(index), title});
    }
    if (rows.empty()) return Done("The store holds no menu titles.\n", data);
    return Done(Table({"#", "TITLE"}, rows), data);
}

Outcome RunLanguage(const Invocation&) {
    std::string language;
    Client().GetDisclaimerOsdLanguage(language);
    Json::Value data(Json::objectValue);
    data["language"] = language;
    return Done(language + "\n", data);
}

Outcome RunCountrySet(const Invocation& invocation) {
    const std::string& code = invocation.operands[0];
    return Answer(Client().SetCountryCode(code), "Country code set to " + code + ".",
                  "the country code " + Quoted(code));
}

Outcome RunCountryList(const Invocation&) {
    return Answer(Client().RequestCountryCodeList(), "The service accepted the request for the country code list.",
                  "the request for the country code list");
}

Outcome RunUpdate(const Invocation& invocation) {
    return Answer(Client().RequestUpdateDisclaimers(ProductType(invocation)),
                  "The service accepted the request to update the disclaimers.",
                  "the request to update the disclaimers");
}

Outcome RunUpdateApi(const Invocation& invocation) {
    return Answer(Client().RequestDisclaimersRESTAPI(invocation.operands[0], invocation.operands[1]),
                  "The service accepted the request to fetch the disclaimers.", "the request to fetch the disclaimers");
}

Outcome RunDisclaimerId(const Invocation& invocation) {
    return Answer(Client().RequestDisclaimerID(ProductType(invocation), invocation.Has("--other-page")),
                  "The service accepted the request for the disclaimer ids.", "the request for the disclaimer ids");
}

Outcome RunHeader(const Invocation& invocation) {
    Json::Value header;
    if (invocation.Has("--web-view")) {
        Client().GetInformationForDisclaimerWebView(header);
    } else {
        Client().GetInformationForDisclaimer(header);
    }
    if (header.isNull()) return Refused(std::string("the service sent no header data") + kReasonInLog);
    Json::Value data(Json::objectValue);
    data["header"] = header;
    return Done(JsonToText(header), data);
}

Outcome RunCheck(const Invocation& invocation) {
    int errorCode = 0;
    int errorReason = 0;
    std::string message;
    const bool info = invocation.Has("--info");
    const bool passed =
        info ? Client().DravikCheck(errorCode, errorReason, message) : Client().DravikCheck(errorCode, errorReason);
    Json::Value data(Json::objectValue);
    data["passed"] = passed;
    data["errorcode"] = errorCode;
    data["errorreason"] = errorReason;
    std::string text = std::string("The service's check ") + (passed ? "passed." : "failed.") + "\n" +
                       "  error code:   " + std::to_string(errorCode) + "\n" +
                       "  error reason: " + std::to_string(errorReason) + "\n";
    if (info) {
        data["errormessage"] = message;
        text += "  message:      " + (message.empty() ? std::string("-") : message) + "\n";
    }
    if (passed) return Done(text, data);
    std::string sentence = "the service's check failed with error code " + std::to_string(errorCode);
    sentence += " and reason " + std::to_string(errorReason);
    if (!info) sentence += " (check --info asks for its message)";
    if (info && !message.empty()) sentence += ": " + message;
    return Refused(sentence, data, text);
}

Outcome RunCloneToUsb(const Invocation& invocation) {
    return Clone(invocation, true);
}

Outcome RunCloneToTv(const Invocation& invocation) {
    return Clone(invocation, false);
}

Outcome RunReset(const Invocation&) {
    return Answer(Client().RequestResetNimbra(), "The service accepted the reset request.", "the reset request");
}

Outcome RunStoreGet(const Invocation& invocation) {
    const std::string& key = invocation.operands[0];
    errno = 0;
    char* value = vconf_get_str(key.c_str());
    if (!value) return StoreFailure("read", key);
    const std::string text = value;
    std::free(value);
    Json::Value data(Json::objectValue);
    data["key"] = key;
    data["value"] = text;
    return Done(text + "\n", data);
}

Outcome RunStoreSet(const Invocation& invocation) {
    const std::string& key = invocation.operands[0];
    errno = 0;
    if (vconf_set_str(key.c_str(), invocation.operands[1].c_str()) != 0) return StoreFailure("set", key);
    return Done("Set " + key + ".\n");
}

Outcome RunStoreUnset(const Invocation& invocation) {
    const std::string& key = invocation.operands[0];
    errno = 0;
    if (vconf_unset(key.c_str()) != 0) return StoreFailure("unset", key);
    return Done("Unset " + key + ".\n");
}

}  // namespace termscli
