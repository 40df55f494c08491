// Class interface of the terms client.
//
// CVerantiAPI::GetInstance() returns the process-wide client. Every request
// method is synchronous, runs on the caller's thread, opens its own bus
// connection to the terms-client service and closes it before it returns.
//
// Ownership: records that a method creates for a list are allocated with
// `new`, one by one, and belong to the caller from then on (release them
// with `delete`). Records and JSON values passed by reference stay the
// caller's. Exceptions of the JSON library may pass out of request methods;
// only the configuration-store readers turn them into failures.
#ifndef VERANTI_API_H
#define VERANTI_API_H

#include <json/json.h>

#include <string>
#include <vector>

#include "VerantiExport.h"

// Who asks for disclaimers. The service gives 0 to 3 their meaning; 4 is the
// catch-all for every other requester.
enum EHomeDisclaimerRequester {
    E_DISCLAIMER_REQUESTER_0 = 0,
    E_DISCLAIMER_REQUESTER_1 = 1,
    E_DISCLAIMER_REQUESTER_2 = 2,
    E_DISCLAIMER_REQUESTER_3 = 3,
    E_DISCLAIMER_REQUESTER_OTHER = 4,
};

// One disclaimer as the terms-client service describes it. The member order
// is part of the interface: the C conversion walks the members in this order.
struct VERANTI_EXPORT STHomeDisclaimerContentItem {
    STHomeDisclaimerContentItem();

    std::string strItemId;
    int nOrder;
    std::string strVersion;
    std::string strTitle;
    std::string strIntro;
    std::string strDetails;
    std::string strButton1;
    std::string strButton2;
    std::string strButton3;
    std::string strButton4;
    std::string strButton5;
    std::string strButton6;
    std::string strButton7;
    std::string strButton8;
    std::string strButton9;
    std::string strButton10;
    bool bIsAgreed;
    bool bOnlyNotice;
    std::string strAgreeDependency;
    bool bPPUsed;
    bool bReverse;
    // Detail sections, flat: title 0, text 0, title 1, text 1, ...
    std::vector<std::string> vecDetailData;
};

class VERANTI_EXPORT CVerantiAPI {
public:
    // An error as a code and a reason, convertible to and from the JSON text
    // {"error_code":<int>,"error_reason":<int>}.
    class VERANTI_EXPORT CErrorDescriptor {
    public:
        CErrorDescriptor();
        CErrorDescriptor(int errorCode, int errorReason);

        static CErrorDescriptor FromString(std::string text);
        std::string ToString() const;

        int m_ErrorCode;
        int m_ErrorReason;
    };

    CVerantiAPI();
    virtual ~CVerantiAPI();

    static CVerantiAPI* GetInstance();
    static CVerantiAPI* GetInstanceUT();
    static void Destroy();

    static CVerantiAPI* m_pInstance;

    bool IsServiceAvailable();

    // Plain requests.
    void GetInformationForDisclaimer(Json::Value& header);
    void GetInformationForDisclaimerWebView(Json::Value& header);
    bool DravikCheck(int& errorCode, int& errorReason);
    bool DravikCheck(int& errorCode, int& errorReason, std::string& errorMessage);
    bool RequestDisclaimersRESTAPI(std::string requestFrom, std::string terms);
    bool RequestDisclaimerID(std::string productType, bool otherPage);
    bool SetDisclaimersAgreement(Json::Value& agreements, bool unused, std::string productType);
    bool SetCountryCode(const std::string& countryCode);
    bool RequestUpdateDisclaimers(std::string productType);
    bool RequestCountryCodeList();
    bool CloneData(std::string src, std::string dest, bool toUsb);
    bool CopyCloneDataUSBtoTV(std::string src, std::string dest);
    bool CopyCloneDataTVtoUSB(std::string src, std::string dest);
    bool RequestResetNimbra();
    int GetDisclaimerNum(EHomeDisclaimerRequester requester, std::string productType);
    bool SetAllDisclaimerItemAgreement(int agreed, std::string productType);
    bool SetRevisedTermAgreement(std::string item, bool agreed, std::string productType);
    bool SetDisclaimerItemAgreement(const std::string& item, const int& agreed, std::string productType);

    // Disclaimer content.
    bool GetRevisedDisclaimers(std::vector<STHomeDisclaimerContentItem*>& vecItems, std::string strProductType,
                               std::string strTerms);
    int GetDisclaimerDetail(STHomeDisclaimerContentItem& item, int index, EHomeDisclaimerRequester requester,
                            std::string strProductType);
    int GetDisclaimerDetail(const std::string& strItemId, STHomeDisclaimerContentItem& item,
                            std::string strProductType);
    int GetDisclaimerDetails(std::vector<STHomeDisclaimerContentItem*>& vecItems, EHomeDisclaimerRequester requester,
                             std::string strProductType);

    // Agreements and stored terms data.
    bool IsDisclaimerItemExist(const std::string& strItemId, std::string productType);
    int GetDisclaimerItemAgreement(const std::string& strItemId, int* pIsAgreed, std::string productType);
    int GetDisclaimerTitle(std::string& title, int index);
    int GetDisclaimerOsdLanguage(std::string& language);

private:
    void m_InitProxy();
    void m_FinalProxy();
};

#endif  // VERANTI_API_H
