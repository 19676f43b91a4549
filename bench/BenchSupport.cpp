// Shared benchmark helpers.
