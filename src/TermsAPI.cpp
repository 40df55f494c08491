// TermsAPI
