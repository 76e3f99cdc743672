document.getElementById("app").textContent = "A virtual Mac.";
