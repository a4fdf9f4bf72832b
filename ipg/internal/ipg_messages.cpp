// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_messages.h"

#include "ipg/ui/ipg_message.h"

namespace {

std::string ApplyOf(const std::string& className) { return className + "::Apply()"; }

} // namespace

std::string Ipg_MsgSizes(const std::string& where)
{
  return "Les images n'ont pas les mêmes dimensions : " + where;
}

std::string Ipg_MsgRoiSizeAt(const std::string& where)
{
  return "La ROI n'a pas les mêmes dimensions que l'image : " + where;
}

std::string Ipg_MsgParameterRangeAt(const std::string& parameter, const std::string& where)
{
  return "Paramètre " + parameter + " hors limites : " + where;
}

std::string Ipg_MsgNothingToMeasure(const std::string& where)
{
  return "Aucun pixel à mesurer : " + where;
}

std::string Ipg_MsgImageTooSmall(const std::string& where)
{
  return "Image trop petite : " + where;
}

std::string Ipg_MsgIterations(const std::string& where)
{
  return "Nombre d'itérations négatif ou nul : " + where;
}

std::string Ipg_MsgWindowSize(const std::string& where)
{
  return "Taille de fenêtre incorrecte pour l'image : " + where;
}

std::string Ipg_MsgFilterParameter(const std::string& where)
{
  return "Paramètre de filtrage incorrect : " + where;
}

std::string Ipg_MsgContourMissing(const std::string& where)
{
  return "Contour initial absent de la liste d'objets : " + where;
}

std::string Ipg_MsgTooFewPoints(const std::string& where)
{
  return "Pas assez de points dans le contour : " + where;
}

std::string Ipg_MsgRadius(const std::string& where)
{
  return "Rayon négatif ou nul : " + where;
}

std::string Ipg_MsgCircleOutside(const std::string& where)
{
  return "Le cercle initial sort de l'image : " + where;
}

std::string Ipg_MsgRoiSize(const std::string& className)
{
  return Ipg_MsgRoiSizeAt(ApplyOf(className));
}

std::string Ipg_MsgParameterRange(const std::string& parameter, const std::string& className)
{
  return Ipg_MsgParameterRangeAt(parameter, ApplyOf(className));
}

bool Ipg_InformAndFail(const std::string& text)
{
  Ipg_Inform(text);
  return false;
}
