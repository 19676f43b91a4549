// Shared test fixtures.
