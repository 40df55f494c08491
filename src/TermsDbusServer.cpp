// TermsDbusServer
