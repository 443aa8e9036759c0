// Keeps the support library non-empty before fixtures exist.
