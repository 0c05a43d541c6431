"""Makes documents and tables from protocol.json: see scripts/generate-protocol."""
