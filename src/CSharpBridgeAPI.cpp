// CSharpBridgeAPI
