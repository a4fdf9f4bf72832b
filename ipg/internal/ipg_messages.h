// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

// Every text an operator shows, written once. Hosts match on these texts, so
// they are kept byte for byte, typos and all. The texts hosts can name are
// public: kIpgMsgNoOutput, kIpgMsgNoOutputUnaccented and kIpgMsgPhotometric in
// ipg/framework/ipg_output_mode.h, kIpgMsgCancelled in ipg/ui/ipg_progress.h.
#include "ipg/framework/ipg_output_mode.h"
#include "ipg/ui/ipg_progress.h"

inline constexpr const char* kIpgMsgAllocation = "Allocation mémoire impossible";
inline constexpr const char* kIpgMsgInputNotAllocated = "image d'entrée non allouée";
inline constexpr const char* kIpgMsgNoInputImage = "Pas d'image d'entrée!";
inline constexpr const char* kIpgMsgNoImageAsInput = "Pas d'image en entrée!"; // IPG_HOLDER's wording
inline constexpr const char* kIpgMsgDivisionByZero = "Division par Zéro";
inline constexpr const char* kIpgMsgNegativeVariance = "problème : variance négative";
inline constexpr const char* kIpgMsgOutputSize = "Taille de l'image de sortie invalide";

// Labelling and ROI.
inline constexpr const char* kIpgMsgTooManyLabels = "Nombre d'étiquettes max dépassés";
inline constexpr const char* kIpgMsgNoTool = "Aucun outil de traitement d'image correspondant";
inline constexpr const char* kIpgMsgRoiNotHandled = "Non géré actuellement : IPG_ROI, ipg_roi";
inline constexpr const char* kIpgMsgUnknownRoiType = "Erreur : aucun type de ROI correspondant";

// Wavelets.
inline constexpr const char* kIpgMsgBadDerivation = "Mauvais choix de type de dérivation";
inline constexpr const char* kIpgMsgZeroDeterminant = "Aïe, déterminant nul!!";

// Filtering.
inline constexpr const char* kIpgMsgNoUserFilter = "Le filtre utilisateur n'est pas défini";
inline constexpr const char* kIpgMsgSmoothingFailed = "Erreur d'application du lissage";
inline constexpr const char* kIpgMsgSigma = "Erreur : sigma négatif ou nul";
inline constexpr const char* kIpgMsgFilterSize = "Erreur : taile du filtre négative ou nulle";
inline constexpr const char* kIpgMsgMedianParity = "Erreur de parité du filtre médian !";
inline constexpr const char* kIpgMsgResolution = "la résolution doit être strictement supérieure à 0!";
inline constexpr const char* kIpgMsgFilterRotation = "la rotation des filtres non 3x3 n'est pas gérée : RotateFilter";

// Texts that end with where they come from: where is "<CLASS>::<Method>()".
// "Les images n'ont pas les mêmes dimensions : <where>"
std::string Ipg_MsgSizes(const std::string& where);
// "La ROI n'a pas les mêmes dimensions que l'image : <where>"
std::string Ipg_MsgRoiSizeAt(const std::string& where);
// "Paramètre <parameter> hors limites : <where>"
std::string Ipg_MsgParameterRangeAt(const std::string& parameter, const std::string& where);
// "Aucun pixel à mesurer : <where>"
std::string Ipg_MsgNothingToMeasure(const std::string& where);
// "Image trop petite : <where>"
std::string Ipg_MsgImageTooSmall(const std::string& where);
// "Nombre d'itérations négatif ou nul : <where>"
std::string Ipg_MsgIterations(const std::string& where);
// "Taille de fenêtre incorrecte pour l'image : <where>"
std::string Ipg_MsgWindowSize(const std::string& where);
// "Paramètre de filtrage incorrect : <where>"
std::string Ipg_MsgFilterParameter(const std::string& where);

// Deformable contours.
// "Contour initial absent de la liste d'objets : <where>"
std::string Ipg_MsgContourMissing(const std::string& where);
// "Pas assez de points dans le contour : <where>"
std::string Ipg_MsgTooFewPoints(const std::string& where);
// "Rayon négatif ou nul : <where>"
std::string Ipg_MsgRadius(const std::string& where);
// "Le cercle initial sort de l'image : <where>"
std::string Ipg_MsgCircleOutside(const std::string& where);

// The same texts from <className>::Apply().
std::string Ipg_MsgRoiSize(const std::string& className);
std::string Ipg_MsgParameterRange(const std::string& parameter, const std::string& className);

// Shows text through Ipg_Inform and returns false, for `return Ipg_InformAndFail(...)`.
bool Ipg_InformAndFail(const std::string& text);
