// placeholder, replaced by the platform layer
